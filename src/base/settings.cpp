#include "base/settings.h"

#include <cerrno>

#include "base/debug.h"
#include "base/json.h"
#include "base/renewal_settings.h"
#include "platform/files.h"

namespace kova {
namespace {

// Takes members of the right type out of the file; what has another keeps its default.
class Members {
 public:
  explicit Members(const Json::Value& file) : file_(file) {}

  void Take(const char* key, bool& member) const {
    if (const Json::Value& value = Member(file_, key); value.isBool()) member = value.asBool();
  }

  void Take(const char* key, std::optional<int>& member) const {
    if (const Json::Value& value = Member(file_, key); value.isInt()) member = value.asInt();
  }

  template <class Text>
  void TakeText(const char* key, Text& member) const {
    if (const Json::Value& value = Member(file_, key); value.isString()) member = value.asString();
  }

  // For a key whose wrong values are told to somebody: one of another type is an empty text.
  void TakeAnyText(const char* key, std::optional<std::string>& member) const {
    if (HasMember(file_, key)) member = TextMember(file_, key);
  }

  // A count, 1 or more.
  void TakeCount(const char* key, int& member) const {
    std::optional<int> count;
    Take(key, count);
    if (count.value_or(0) >= 1) member = *count;
  }

 private:
  const Json::Value& file_;
};

void Fill(const Members& file, Settings& settings) {
  file.Take("debuglog", settings.debug_log);
  file.TakeText("server", settings.server);
  file.Take("renew_before_expire_days", settings.renew_before_expire_days);
  file.Take("skipdns01", settings.skip_dns01);
  file.TakeText("kovaddns", settings.kova_ddns);
  file.Take("asyncfinalize", settings.async_finalize);
  file.TakeCount("orderattempts", settings.order_attempts);
  file.Take("noncerefill", settings.nonce_refill);
  file.Take("keepconnections", settings.keep_connections);
  file.TakeCount("transfertimeout", settings.transfer_timeout);
  file.TakeAnyText("keytype", settings.key_type);
  file.Take("strictencoding", settings.strict_encoding);
  file.Take("checkissued", settings.check_issued);
  file.Take("stagedupdate", settings.staged_update);
  file.TakeText("profile", settings.profile);
  file.TakeText("preferredchain", settings.preferred_chain);
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
  Fill(Members(document), settings);
  return settings;
}

RenewalSettings RenewalSettings::Read() {
  RenewalSettings settings;
  const Json::Value document = ReadFile(settings);
  const Members file(document);
  Fill(file, settings);
  file.Take("renewanyissuer", settings.renew_any_issuer);
  file.Take("renewlifetime", settings.renew_lifetime);
  file.Take("renewalinfo", settings.renewal_info);
  file.Take("renewfailures", settings.renew_failures);
  file.TakeText("cronperiod", settings.cron_period);
  return settings;
}

void ApplyDebugSettings(const Settings& settings) {
  if (!settings.debug_log) return;
  SetDebugToSyslog(*settings.debug_log);
  if (*settings.debug_log != 0) SetDebugLevel(2);
}

}  // namespace kova
