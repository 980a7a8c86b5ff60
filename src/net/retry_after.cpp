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

// Of so many significant digits a number is longer than any bound.
constexpr size_t kManyDigits = 9;

seconds FromDigits(const std::string& digits) {
  const size_t significant = digits.find_first_not_of('0');
  if (significant == std::string::npos) return seconds(0);
  if (digits.size() - significant > kManyDigits) return seconds::max();
  return seconds(std::stoi(digits.substr(significant)));
}

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::optional<seconds> DelayOf(const std::string& text, seconds shortest, seconds longest) {
  const std::string value = Trimmed(text);
  if (IsDigits(value)) return std::clamp(FromDigits(value), shortest, longest);
  const std::time_t date = curl_getdate(value.c_str(), nullptr);
  if (date == -1) return std::nullopt;
  return std::clamp(seconds(date - std::time(nullptr)), shortest, longest);
}

}  // namespace

std::optional<seconds> RetryAfter(const HttpResponse& response) {
  return DelayOf(GetHeader(response, "Retry-After"), kShortest, kLongest);
}

std::optional<seconds> RetryAfterWithin(const HttpResponse& response, seconds shortest,
                                        seconds longest) {
  return DelayOf(AnyCaseHeader(response, "Retry-After"), shortest, longest);
}

}  // namespace kova
