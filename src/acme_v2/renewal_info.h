// Renewal information (RFC 9773): when the CA would like to see a certificate renewed.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "base/settings.h"
#include "crypto/certificate.h"
#include "net/client_network.h"

namespace kova {

// Seconds since the epoch; both ends belong to it.
struct RenewalWindow {
  std::int64_t start = 0;
  std::int64_t end = 0;
  bool operator==(const RenewalWindow&) const = default;
};

struct RenewalInfo {
  RenewalWindow window;
  std::string explanation_url;  // printable ASCII, at most 512 characters; may be empty
};

// What the CA knows the certificate by: its issuer's key and its serial number. Empty when it does
// not name its issuer's key.
std::string RenewalIdentifier(const Certificate& certificate);

// None when the text is not JSON or has no window that ends after it starts.
std::optional<RenewalInfo> ParseRenewalInfo(const std::string& text);

struct RenewalAnswer {
  std::optional<RenewalInfo> info;
  std::string problem;  // why there is none; empty when an earlier answer has said so
  // Not before that, 1 minute to 1 day; none from a CA that said nothing.
  std::optional<std::chrono::seconds> ask_again_in;
};

// Asks one CA, with one look at its directory for all questions and ten seconds at most for each.
// Once it cannot be reached, asks for patience (429), has trouble of its own (5xx) or has been
// listened to for half an hour, it is not asked again: no renewal is to wait long for advice.
class RenewalInfoSource {
 public:
  RenewalInfoSource(std::string directory_url, const Settings& settings);

  // None when the CA gives no such information, or is no longer asked. Throws no SLError.
  std::optional<RenewalAnswer> Ask(const std::string& identifier);

 private:
  std::optional<RenewalAnswer> AskCa(const std::string& identifier);
  RenewalAnswer LeaveAlone(const HttpResponse& response);
  RenewalAnswer GiveUp(const std::string& problem);

  HttpClient http_;
  std::string directory_url_;
  std::chrono::steady_clock::time_point deadline_;
  std::optional<std::string> resource_;  // its URL, once the directory was looked at
  bool given_up_ = false;
  std::optional<RenewalAnswer> afterwards_;  // what everybody gets from then on
};

}  // namespace kova
