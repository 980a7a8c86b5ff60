#include "base/settings.h"

#include <cerrno>

#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "base/renewal_settings.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

bool Read(const Json::Value& value, bool& member) {
  if (!value.isBool()) return false;
  member = value.asBool();
  return true;
}

bool Read(const Json::Value& value, std::optional<int>& member) {
  if (!value.isInt()) return false;
  member = value.asInt();
  return true;
}

template <class Text>
bool ReadText(const Json::Value& value, Text& member) {
  if (!value.isString()) return false;
  member = value.asString();
  return true;
}

// A count, 1 or more.
bool ReadCount(const Json::Value& value, int& member) {
  if (!value.isInt() || value.asInt() < 1) return false;
  member = value.asInt();
  return true;
}

// Takes members of the right type out of the file; what has another keeps its default, and its key
// is one of those that are ignored.
class Members {
 public:
  Members(const Json::Value& file, std::vector<std::string>& ignored)
      : file_(file), ignored_(ignored) {}

  void Take(const char* key, bool& member) const { Note(key, Read(Of(key), member)); }
  void TakeCount(const char* key, int& member) const { Note(key, ReadCount(Of(key), member)); }
  void TakeText(const char* key, std::optional<std::string>& member) const {
    Note(key, ReadText(Of(key), member));
  }

 private:
  [[nodiscard]] const Json::Value& Of(const char* key) const { return Member(file_, key); }

  void Note(const char* key, bool taken) const {
    if (!taken && HasMember(file_, key)) ignored_.emplace_back(key);
  }

  const Json::Value& file_;
  std::vector<std::string>& ignored_;
};

// The keys that have always been there.
void FillBasic(const Json::Value& file, Settings& settings) {
  (void)Read(Member(file, "debuglog"), settings.debug_log);
  (void)ReadText(Member(file, "server"), settings.server);
  (void)Read(Member(file, "renew_before_expire_days"), settings.renew_before_expire_days);
  (void)Read(Member(file, "skipdns01"), settings.skip_dns01);
  (void)ReadText(Member(file, "kovaddns"), settings.kova_ddns);
}

void Fill(const Json::Value& document, Settings& settings) {
  FillBasic(document, settings);
  const Members file(document, settings.ignored);
  file.Take("asyncfinalize", settings.async_finalize);
  file.Take("quickvalidation", settings.quick_validation);
  file.TakeCount("orderattempts", settings.order_attempts);
  file.Take("noncerefill", settings.nonce_refill);
  file.Take("keepconnections", settings.keep_connections);
  file.TakeCount("transfertimeout", settings.transfer_timeout);
  file.Take("strictencoding", settings.strict_encoding);
  file.Take("checkissued", settings.check_issued);
  file.Take("stagedupdate", settings.staged_update);
  file.TakeText("profile", settings.profile);
  file.TakeText("preferredchain", settings.preferred_chain);
  // Its wrong values are told where it is used: one of another type is an empty text.
  if (HasMember(document, "keytype")) settings.key_type = TextMember(document, "keytype");
}

// The file's members; none when it cannot be used, which the settings then say.
Json::Value ReadFile(Settings& settings) {
  Json::Value document;
  errno = 0;
  settings.usable = platform::ReadJsonObject(kSettingsPath, document);
  if (!settings.usable) settings.read_error = errno;
  return document;
}

}  // namespace

Settings Settings::Read() {
  Settings settings;
  const Json::Value document = ReadFile(settings);
  Fill(document, settings);
  return settings;
}

RenewalSettings RenewalSettings::Read() {
  RenewalSettings settings;
  const Json::Value document = ReadFile(settings);
  Fill(document, settings);
  const Members file(document, settings.ignored);
  file.Take("renewanyissuer", settings.renew_any_issuer);
  file.Take("renewlifetime", settings.renew_lifetime);
  file.Take("renewalinfo", settings.renewal_info);
  file.Take("renewfailures", settings.renew_failures);
  file.TakeText("cronperiod", settings.cron_period);
  return settings;
}

void TellIgnoredKeys(const Settings& settings) {
  for (const std::string& key : settings.ignored) {
    LogError(kTag, "Ignored key [%s], its value is of a wrong type. [%s]", key.c_str(),
             kSettingsPath);
  }
}

void ApplyDebugSettings(const Settings& settings) {
  if (!settings.debug_log) return;
  SetDebugToSyslog(*settings.debug_log);
  if (*settings.debug_log != 0) SetDebugLevel(2);
}

}  // namespace kova
