// What the last attempts to renew a certificate came to (with the settings' `renewfailures`) and
// what its CA advises (with `renewalinfo`), kept from one run to the next: one file a certificate
// (docs/formats.md). A file that cannot be read is as good as none.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "base/sl_error.h"
#include "lifecycle/renewal_advice.h"

namespace kova {

inline constexpr char kHistoryFolder[] = "/usr/kova/etc/letsencrypt/renewal";

struct RenewalHistory {
  std::string last_attempt;  // RFC 3339, UTC; empty when there was none
  std::string last_success;
  std::string last_notice;    // when the host was last told of a failure
  int failures = 0;           // in a row
  std::string failing_since;  // the first of them
  int error = 0;              // the last failure, when there is one
  std::string message;
  std::string file;
  std::optional<RenewalAdvice> advice;
};

// As it is kept (docs/formats.md).
Json::Value ToJson(const RenewalHistory& history);

// `id` must be a plain name for all.
RenewalHistory ReadRenewalHistory(const std::string& id);
// Says in one line of the log what of the file cannot be used, unless there is none.
void TellUnusableHistory(const std::string& id);
// 0600, replaced whole; what fails is logged.
void WriteRenewalHistory(const std::string& id, const RenewalHistory& history);

// Silent: a certificate that is removed takes its history along.
void RemoveRenewalHistory(const std::string& id);

// The history after an attempt at that moment.
void NoteSuccess(RenewalHistory& history, std::int64_t now);
void NoteFailure(RenewalHistory& history, const SLError& error, std::int64_t now);

// True when the failures so far leave the certificate alone for now: three in a row, and the last
// attempt less than a day ago.
[[nodiscard]] bool IsWaiting(const RenewalHistory& history, std::int64_t now);

// True when the host was not yet told of a failure in the day before that moment.
[[nodiscard]] bool IsToBeNotified(const RenewalHistory& history, std::int64_t now);

// "2026-11-21T10:00:00Z", and back; none of another form is 0.
std::string TimeText(std::int64_t moment);
std::int64_t TimeOfText(const std::string& text);

}  // namespace kova
