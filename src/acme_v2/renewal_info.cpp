#include "acme_v2/renewal_info.h"

#include <algorithm>
#include <utility>

#include "base/json.h"
#include "base/rfc3339.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "net/headers.h"

namespace kova {
namespace {

using std::chrono::seconds;

constexpr seconds kSoonest{60};
constexpr seconds kLatest{86400};
constexpr seconds kUsually{6 * 3600};
constexpr seconds kPerQuestion{10};
constexpr std::chrono::minutes kForAllQuestions{30};
constexpr size_t kMaximumReply = size_t{256} << 10;
constexpr size_t kMaximumExplanation = 512;

HttpOptions OptionsOf(const Settings& settings) {
  HttpOptions options = HttpOptionsOf(settings);
  options.transfer_timeout =
      std::min(options.transfer_timeout.value_or(kPerQuestion), kPerQuestion);
  options.maximum_body = kMaximumReply;
  return options;
}

// It goes to the log and to a file.
std::string Printable(std::string text) {
  text.resize(std::min(text.size(), kMaximumExplanation));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, ' ');
  return text;
}

std::int64_t SecondsOf(Moment moment) {
  return std::chrono::floor<seconds>(moment).time_since_epoch().count();
}

// The CA's reason to be left alone.
bool AsksForPatience(const HttpResponse& response) {
  return response.status == 429 || response.status >= 500;
}

std::string StatusProblem(const HttpResponse& response) {
  return "the CA answered " + std::to_string(response.status) + ".";
}

seconds PauseOf(const HttpResponse& response) {
  return RetryAfterWithin(response, kSoonest, kLatest).value_or(kUsually);
}

RenewalAnswer AnswerOf(const HttpResponse& response) {
  if (response.status != 200) return {std::nullopt, StatusProblem(response), PauseOf(response)};
  std::optional<RenewalInfo> info = ParseRenewalInfo(response.body);
  const char* problem = info ? "" : "the CA's answer has no usable window.";
  return {std::move(info), problem, PauseOf(response)};
}

std::string WithSlash(std::string url) {
  if (!url.ends_with('/')) url += '/';
  return url;
}

}  // namespace

std::string RenewalIdentifier(const Certificate& certificate) {
  const std::string issuer_key = certificate.AuthorityKeyId();
  if (issuer_key.empty()) return {};
  return Base64UrlEncode(issuer_key) + "." + Base64UrlEncode(certificate.Serial());
}

std::optional<RenewalInfo> ParseRenewalInfo(const std::string& text) {
  Json::Value document;
  if (!JsonFromText(text, document)) return std::nullopt;
  const Json::Value& window = Member(document, "suggestedWindow");
  const std::optional<Moment> start = MomentOfText(TextMember(window, "start"));
  const std::optional<Moment> end = MomentOfText(TextMember(window, "end"));
  if (!start || !end || *end <= *start) return std::nullopt;
  return RenewalInfo{{SecondsOf(*start), SecondsOf(*end)},
                     Printable(TextMember(document, "explanationURL"))};
}

RenewalInfoSource::RenewalInfoSource(std::string directory_url, const Settings& settings)
    : http_(OptionsOf(settings)),
      directory_url_(std::move(directory_url)),
      deadline_(std::chrono::steady_clock::now() + kForAllQuestions) {}

std::optional<RenewalAnswer> RenewalInfoSource::Ask(const std::string& identifier) {
  if (given_up_) return afterwards_;
  if (std::chrono::steady_clock::now() > deadline_) return GiveUp("the CA takes too long.");
  try {
    return AskCa(identifier);
  } catch (const SLError& error) {
    return GiveUp(error.message);
  }
}

std::optional<RenewalAnswer> RenewalInfoSource::AskCa(const std::string& identifier) {
  if (!resource_) {
    const HttpResponse directory = http_.Get(directory_url_);
    if (directory.status != 200) return LeaveAlone(directory);
    resource_ = TextMember(GetJsonBody(directory), "renewalInfo");
    given_up_ = resource_->empty();
  }
  if (given_up_) return std::nullopt;
  const HttpResponse response = http_.GetUnredirected(WithSlash(*resource_) + identifier);
  return AsksForPatience(response) ? LeaveAlone(response) : AnswerOf(response);
}

RenewalAnswer RenewalInfoSource::LeaveAlone(const HttpResponse& response) {
  given_up_ = true;
  afterwards_ = RenewalAnswer{std::nullopt, "", PauseOf(response)};
  return {std::nullopt, StatusProblem(response), PauseOf(response)};
}

RenewalAnswer RenewalInfoSource::GiveUp(const std::string& problem) {
  given_up_ = true;
  return {std::nullopt, problem, std::nullopt};
}

}  // namespace kova
