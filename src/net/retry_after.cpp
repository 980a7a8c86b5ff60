#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <optional>
#include <string>

#include "net/headers.h"

namespace kova {
namespace {

using std::chrono::seconds;

constexpr seconds kShortest{1};
constexpr seconds kLongest{10};

bool IsDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// The bounds make every number of more than two significant digits the same.
seconds FromDigits(const std::string& digits) {
  const size_t significant = digits.find_first_not_of('0');
  if (significant == std::string::npos) return seconds(0);
  if (digits.size() - significant > 2) return kLongest;
  return seconds(std::stoi(digits.substr(significant)));
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::optional<seconds> RetryAfter(const HttpResponse& response) {
  const std::string value = Trimmed(GetHeader(response, "Retry-After"));
  if (IsDigits(value)) return std::clamp(FromDigits(value), kShortest, kLongest);
  const std::time_t date = curl_getdate(value.c_str(), nullptr);
  if (date == -1) return std::nullopt;
  return std::clamp(seconds(date - std::time(nullptr)), kShortest, kLongest);
}

}  // namespace kova
