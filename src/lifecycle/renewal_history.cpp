#include "lifecycle/renewal_history.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <utility>

#include "base/json.h"
#include "base/log.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr char kTimeForm[] = "%Y-%m-%dT%H:%M:%SZ";
constexpr std::array kTexts = {"last_attempt",  "last_success", "last_notice",
                               "failing_since", "msg",          "file"};
constexpr std::array kNumbers = {"failures", "error"};
constexpr int kFailuresBeforeWaiting = 3;
constexpr int kMostFailures = 1'000'000;  // as far as they are counted

// An hour less than a day: a daily job's attempt ends a little after the job began, and the next
// day's run must not come too early for it.
constexpr std::int64_t kAboutADay = 23 * std::int64_t{3600};

std::string PathOf(const std::string& id) {
  return std::string(kHistoryFolder) + "/" + id + ".json";
}

int IntegerMember(const Json::Value& document, const char* name) {
  const Json::Value& member = Member(document, name);
  return member.isInt() ? member.asInt() : 0;
}

// The members that are there, but of another type; ", " between them.
std::string MembersOfAnotherType(const Json::Value& document) {
  std::string names;
  const auto require = [&](const char* name, bool right) {
    if (HasMember(document, name) && !right)
      names += (names.empty() ? "" : ", ") + std::string(name);
  };
  for (const char* name : kTexts) require(name, Member(document, name).isString());
  for (const char* name : kNumbers) require(name, Member(document, name).isInt());
  require("ari", Member(document, "ari").isObject());
  return names;
}

// An earlier version did not note when failures began; its last attempt is the earliest known.
std::string BeginOfFailures(const RenewalHistory& history, std::int64_t now) {
  if (history.failures == 0) return TimeText(now);
  return history.failing_since.empty() ? history.last_attempt : history.failing_since;
}

// A moment in the future (the clock was put back) counts as long ago: it must not hold anything up.
bool IsWithinADay(const std::string& moment, std::int64_t now) {
  const std::int64_t since = now - TimeOfText(moment);
  return !moment.empty() && since >= 0 && since < kAboutADay;
}

}  // namespace

std::string TimeText(std::int64_t moment) {
  const std::time_t seconds = moment;
  std::tm parts{};
  std::array<char, 32> text{};
  if (gmtime_r(&seconds, &parts) == nullptr ||
      std::strftime(text.data(), text.size(), kTimeForm, &parts) == 0) {
    return {};
  }
  return text.data();
}

std::int64_t TimeOfText(const std::string& text) {
  std::tm parts{};
  const char* end = strptime(text.c_str(), kTimeForm, &parts);
  return end != nullptr && *end == '\0' ? timegm(&parts) : 0;
}

RenewalHistory ReadRenewalHistory(const std::string& id) {
  Json::Value document;
  RenewalHistory history;
  if (!JsonFromFile(PathOf(id), document)) return history;
  history.last_attempt = TextMember(document, "last_attempt");
  history.last_success = TextMember(document, "last_success");
  history.last_notice = TextMember(document, "last_notice");
  history.failures = std::clamp(IntegerMember(document, "failures"), 0, kMostFailures);
  history.failing_since = TextMember(document, "failing_since");
  history.error = IntegerMember(document, "error");
  history.message = TextMember(document, "msg");
  history.file = TextMember(document, "file");
  if (HasMember(document, "ari")) history.advice = AdviceOfJson(document["ari"]);
  return history;
}

void TellUnusableHistory(const std::string& id) {
  const std::string path = PathOf(id);
  if (!KLIBCFileExist(path)) return;
  Json::Value document;
  if (!JsonFromFile(path, document) || !document.isObject()) {
    LogError(kTag, "[%s] is not used: it is no JSON object.", path.c_str());
    return;
  }
  const std::string names = MembersOfAnotherType(document);
  if (names.empty()) return;
  LogError(kTag, "[%s] has members of another type, which are not used: %s", path.c_str(),
           names.c_str());
}

Json::Value ToJson(const RenewalHistory& history) {
  Json::Value document(Json::objectValue);
  document["last_attempt"] = history.last_attempt;
  document["last_success"] = history.last_success;
  document["failures"] = history.failures;
  if (!history.last_notice.empty()) document["last_notice"] = history.last_notice;
  if (history.failures > 0) {
    document["error"] = history.error;
    document["msg"] = history.message;
    document["file"] = history.file;
    document["failing_since"] = history.failing_since;
  }
  if (history.advice) document["ari"] = JsonOfAdvice(*history.advice);
  return document;
}

void WriteRenewalHistory(const std::string& id, const RenewalHistory& history) {
  (void)KOVAFSMkdirP(kHistoryFolder, 0, 1, 0, 0, kFolderMode);  // shows in the file's failure
  const int error = platform::ReplaceFile(PathOf(id), JsonStyledText(ToJson(history)), kFileMode);
  if (error == 0) return;
  LogError(kTag, "Failed to write the renewal history. [%s][%s]", PathOf(id).c_str(),
           std::strerror(error));
}

void RemoveRenewalHistory(const std::string& id) { unlink(PathOf(id).c_str()); }

void NoteSuccess(RenewalHistory& history, std::int64_t now) {
  std::string last_notice = history.last_notice;  // still counts for the next failure
  history = RenewalHistory();
  history.last_notice = std::move(last_notice);
  history.last_attempt = TimeText(now);
  history.last_success = history.last_attempt;
}

void NoteFailure(RenewalHistory& history, const SLError& error, std::int64_t now) {
  history.failing_since = BeginOfFailures(history, now);
  history.last_attempt = TimeText(now);
  history.failures = std::min(history.failures + 1, kMostFailures);
  history.error = error.code;
  history.message = error.message;
  history.file = error.file;
}

bool IsWaiting(const RenewalHistory& history, std::int64_t now) {
  return history.failures >= kFailuresBeforeWaiting && IsWithinADay(history.last_attempt, now);
}

bool IsToBeNotified(const RenewalHistory& history, std::int64_t now) {
  return !IsWithinADay(history.last_notice, now);
}

}  // namespace kova
