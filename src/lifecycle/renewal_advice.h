// What its CA advises about the renewal of one certificate (RFC 9773), as it is kept from one run
// to the next in the certificate's renewal history.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

#include "acme_v2/renewal_info.h"
#include "base/renewal_settings.h"

namespace kova {

// Moments are seconds since the epoch.
struct RenewalAdvice {
  std::string certificate;              // the identifier of the one that it is about
  std::optional<RenewalWindow> window;  // none until the CA has given one
  std::int64_t moment = 0;              // drawn in the window
  std::int64_t ask_again = 0;           // the CA is not asked before
  std::string explanation_url;          // as the system log has it; may be empty
};

// The history's member and back. Of one that is damaged that much is kept that can be used.
Json::Value JsonOfAdvice(const RenewalAdvice& advice);
RenewalAdvice AdviceOfJson(const Json::Value& member);

// True when the CA may be asked at that moment. No answer keeps us from asking for more than a day:
// beyond that the clock was put back.
[[nodiscard]] bool MayAskAgain(const RenewalAdvice& advice, std::int64_t now);

// Takes over an answer of that moment, whose `ask_again_in` is there. A window that was known keeps
// its moment, a new one is given one at random. An answer without a window leaves both as they
// were.
void TakeAnswer(RenewalAdvice& advice, const RenewalAnswer& answer, std::int64_t now);

// True when the certificate's moment comes before that one.
[[nodiscard]] bool IsAdvisedBefore(const RenewalAdvice& advice, std::int64_t next_run);

// How long it is to the next run of the renewal job, in seconds.
std::int64_t TimeBetweenRuns(const RenewalSettings& settings);

}  // namespace kova
