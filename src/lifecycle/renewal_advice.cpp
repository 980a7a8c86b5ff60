#include "lifecycle/renewal_advice.h"

#include <random>

#include "base/json.h"
#include "base/rfc3339.h"
#include "lifecycle/renewal_history.h"

namespace kova {
namespace {

constexpr std::int64_t kDay = 86400;

std::optional<std::int64_t> MomentMember(const Json::Value& value, const char* name) {
  const std::optional<Moment> moment = MomentOfText(TextMember(value, name));
  if (!moment) return std::nullopt;
  return std::chrono::floor<std::chrono::seconds>(*moment).time_since_epoch().count();
}

// Window and moment, when the one lies in the other.
void TakeWindow(const Json::Value& member, RenewalAdvice& advice) {
  const Json::Value& window = Member(member, "window");
  const std::optional<std::int64_t> start = MomentMember(window, "start");
  const std::optional<std::int64_t> end = MomentMember(window, "end");
  const std::optional<std::int64_t> moment = MomentMember(member, "moment");
  if (!start || !end || !moment || *moment < *start || *moment > *end) return;
  advice.window = RenewalWindow{*start, *end};
  advice.moment = *moment;
}

// From the system's own source: hosts that were started from one image must not draw alike.
std::int64_t DrawIn(const RenewalWindow& window) {
  std::random_device source;
  return std::uniform_int_distribution<std::int64_t>(window.start, window.end)(source);
}

}  // namespace

Json::Value JsonOfAdvice(const RenewalAdvice& advice) {
  Json::Value member(Json::objectValue);
  member["certificate"] = advice.certificate;
  member["ask_again"] = TimeText(advice.ask_again);
  if (advice.window) {
    member["window"]["start"] = TimeText(advice.window->start);
    member["window"]["end"] = TimeText(advice.window->end);
    member["moment"] = TimeText(advice.moment);
  }
  if (!advice.explanation_url.empty()) member["explanation_url"] = advice.explanation_url;
  return member;
}

RenewalAdvice AdviceOfJson(const Json::Value& member) {
  RenewalAdvice advice;
  advice.certificate = TextMember(member, "certificate");
  advice.ask_again = MomentMember(member, "ask_again").value_or(0);
  advice.explanation_url = TextMember(member, "explanation_url");
  TakeWindow(member, advice);
  return advice;
}

bool MayAskAgain(const RenewalAdvice& advice, std::int64_t now) {
  return advice.ask_again <= now || advice.ask_again > now + kDay;
}

void TakeAnswer(RenewalAdvice& advice, const RenewalAnswer& answer, std::int64_t now) {
  advice.ask_again = now + answer.ask_again_in.value_or(std::chrono::seconds(0)).count();
  if (!answer.info) return;
  advice.explanation_url = answer.info->explanation_url;
  if (advice.window == answer.info->window) return;
  advice.window = answer.info->window;
  advice.moment = DrawIn(answer.info->window);
}

bool IsAdvisedBefore(const RenewalAdvice& advice, std::int64_t next_run) {
  return advice.window && advice.moment < next_run;
}

std::int64_t TimeBetweenRuns(const RenewalSettings& settings) {
  const std::string period = settings.cron_period.value_or("");
  if (period == "daily") return kDay;
  return period == "monthly" ? 31 * kDay : 7 * kDay;
}

}  // namespace kova
