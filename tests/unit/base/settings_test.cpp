#include "base/settings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/debug.h"
#include "base/renewal_settings.h"
#include "syslog_capture.h"

namespace kova {
namespace {

namespace fs = std::filesystem;

class SettingsFile : public testing::Test {
 protected:
  SettingsFile() { fs::remove_all(kSettingsPath); }
  ~SettingsFile() override {
    SetDebugLevel(0);
    SetDebugToSyslog(0);
    fs::remove_all(kSettingsPath);
  }

  static void Write(const std::string& content) {
    fs::create_directories(fs::path(kSettingsPath).parent_path());
    std::ofstream(kSettingsPath) << content;
  }
};

// Texts that are no settings file.
const char* const kUnusable[] = {"",     "{", "not json", "[]", "[{\"debuglog\":1}]",
                                 "null", "5", "\"x\""};

TEST_F(SettingsFile, LivesAtItsPath) {
  EXPECT_STREQ(kSettingsPath, "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default");
}

// Every key at a value that is not its default.
constexpr char kAll[] = R"({
  "debuglog": 7, "server": "http://ca/", "renew_before_expire_days": 10, "skipdns01": true,
  "kovaddns": "http://ddns/", "asyncfinalize": true, "orderattempts": 3, "noncerefill": true,
  "strictencoding": true, "keepconnections": true, "transfertimeout": 90, "checkissued": true,
  "stagedupdate": true, "keytype": "ec256", "profile": "p", "preferredchain": "Root X",
  "quickvalidation": true, "another": "one"})";

// All values in one text.
std::string Shown(const Settings& settings) {
  std::ostringstream shown;
  shown << "debug_log " << settings.debug_log.value_or(-99) << ", server " << settings.server
        << ", renew " << settings.renew_before_expire_days.value_or(-99) << ", skip "
        << settings.skip_dns01 << ", ddns " << settings.kova_ddns.value_or("none") << ", async "
        << settings.async_finalize << ", quick " << settings.quick_validation << ", attempts " << settings.order_attempts << ", refill "
        << settings.nonce_refill << ", strict " << settings.strict_encoding << ", keep "
        << settings.keep_connections << ", limit " << settings.transfer_timeout << ", check "
        << settings.check_issued << ", staged " << settings.staged_update << ", key "
        << settings.key_type.value_or("none") << ", profile " << settings.profile.value_or("none")
        << ", chain " << settings.preferred_chain.value_or("none");
  return shown.str();
}

const std::string kDefaults =
    "debug_log -99, server https://acme-v02.api.letsencrypt.org/directory, renew -99, skip 0, "
    "ddns none, async 0, quick 0, attempts 0, refill 0, strict 0, keep 0, limit 0, check 0, staged 0, "
    "key none, profile none, chain none";

Settings ReadOf(const std::string& content) {
  fs::create_directories(fs::path(kSettingsPath).parent_path());
  std::ofstream(kSettingsPath) << content;
  return Settings::Read();
}

TEST_F(SettingsFile, MayBeMissing) {
  errno = EBADF;
  const Settings settings = Settings::Read();
  EXPECT_EQ(settings.read_error, ENOENT);
  EXPECT_FALSE(settings.usable);
  EXPECT_EQ(Shown(settings), kDefaults);
}

TEST_F(SettingsFile, IsLikeAMissingOneWhenItHoldsNoObject) {
  for (const char* text : kUnusable) {
    errno = EBADF;
    const Settings settings = ReadOf(text);
    EXPECT_FALSE(settings.usable) << text;
    EXPECT_EQ(settings.read_error, 0) << text;
    EXPECT_EQ(Shown(settings), kDefaults) << text;
  }
}

TEST_F(SettingsFile, GivesValuesOfTheRightType) {
  const Settings settings = ReadOf(kAll);
  EXPECT_TRUE(settings.usable);
  EXPECT_EQ(settings.read_error, 0);
  EXPECT_EQ(settings.ignored, std::vector<std::string>());
  EXPECT_EQ(Shown(settings),
            "debug_log 7, server http://ca/, renew 10, skip 1, ddns http://ddns/, async 1, "
            "quick 1, attempts 3, refill 1, strict 1, keep 1, limit 90, check 1, staged 1, key ec256, "
            "profile p, chain Root X");
}

TEST_F(SettingsFile, TakesAnEmptyObject) {
  const Settings settings = ReadOf("{}");
  EXPECT_TRUE(settings.usable);
  EXPECT_EQ(Shown(settings), kDefaults);
}

// The default, for each key alone and whatever type the others have.
TEST_F(SettingsFile, TakesNothingOfAnotherType) {
  const std::map<std::string, std::vector<std::string>> wrong = {
      {"debuglog", {"\"1\"", "true", "null", "[]", "{}", "1.5", "99999999999"}},
      {"server", {"10", "true", "null", "[]", "{}", "1.5"}},
      {"renew_before_expire_days", {"\"10\"", "true", "null", "[]", "{}", "1.5", "99999999999"}},
      {"skipdns01", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"kovaddns", {"10", "true", "null", "[]", "{}"}},
      {"asyncfinalize", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"quickvalidation", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"orderattempts", {"0", "-1", "\"3\"", "true", "null", "[]", "{}", "1.5", "99999999999"}},
      {"noncerefill", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"keepconnections", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"transfertimeout", {"0", "-1", "\"3\"", "true", "null", "[]", "{}", "1.5", "99999999999"}},
      {"strictencoding", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"checkissued", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"stagedupdate", {"false", "1", "\"true\"", "null", "[true]", "{}"}},
      {"profile", {"10", "true", "null", "[\"p\"]", "{}"}},
      {"preferredchain", {"10", "true", "null", "[\"X\"]", "{}"}},
  };
  for (const auto& [key, values] : wrong) {
    for (const std::string& value : values) {
      EXPECT_EQ(Shown(ReadOf("{\"" + key + "\": " + value + "}")), kDefaults) << key << value;
    }
  }
}

TEST_F(SettingsFile, KeepsAKeyTypeOfAnotherTypeAsAnEmptyOne) {
  for (const char* value : {"256", "true", "null", "[]", "{}", "\"\""}) {
    EXPECT_EQ(ReadOf(std::string("{\"keytype\": ") + value + "}").key_type, "") << value;
  }
}

TEST_F(SettingsFile, HoldsWhatRenewingAsksForBesides) {
  ReadOf(R"({"server": "http://ca/", "renewanyissuer": true, "renewlifetime": true,
             "renewalinfo": true, "renewfailures": true, "cronperiod": "daily"})");
  const RenewalSettings settings = RenewalSettings::Read();
  EXPECT_TRUE(settings.usable);
  EXPECT_EQ(settings.server, "http://ca/");
  EXPECT_TRUE(settings.renew_any_issuer && settings.renew_lifetime && settings.renewal_info &&
              settings.renew_failures);
  EXPECT_EQ(settings.cron_period, "daily");
}

TEST_F(SettingsFile, HasNothingForRenewingInAnotherType) {
  for (const char* value : {"1", "\"true\"", "null", "[true]", "{}"}) {
    for (const std::string key :
         {"renewanyissuer", "renewlifetime", "renewalinfo", "renewfailures"}) {
      ReadOf("{\"" + key + "\": " + value + "}");
      const RenewalSettings settings = RenewalSettings::Read();
      EXPECT_FALSE(settings.renew_any_issuer || settings.renew_lifetime || settings.renewal_info ||
                   settings.renew_failures)
          << key << value;
    }
  }
  ReadOf(R"({"cronperiod": 7})");
  EXPECT_EQ(RenewalSettings::Read().cron_period, std::nullopt);
}

TEST_F(SettingsFile, TellsWhichKeysItIgnores) {
  ReadOf(R"({"debuglog": "1", "server": 1, "renew_before_expire_days": "1", "skipdns01": 1,
             "kovaddns": 1, "keytype": 1, "orderattempts": 0, "noncerefill": true,
             "asyncfinalize": 1, "profile": null, "cronperiod": 7, "transfertimeout": 1})");
  std::vector<std::string> ignored = {"asyncfinalize", "orderattempts", "profile"};
  EXPECT_EQ(Settings::Read().ignored, ignored);
  ignored.emplace_back("cronperiod");
  const RenewalSettings settings = RenewalSettings::Read();
  EXPECT_EQ(settings.ignored, ignored);
  test::SyslogCapture syslog;
  TellIgnoredKeys(settings);
  std::vector<std::string> expected;
  for (const std::string& key : ignored) {
    expected.push_back("kova-letsencrypt:# Ignored key [" + key +
                       "], its value is of a wrong type. [" + kSettingsPath + "]");
  }
  EXPECT_EQ(syslog.Texts(), expected);
}

TEST_F(SettingsFile, IsReadAnewEachTime) {
  EXPECT_EQ(ReadOf(R"({"orderattempts": 1})").order_attempts, 1);
  EXPECT_EQ(ReadOf(R"({"orderattempts": 2})").order_attempts, 2);
}

TEST_F(SettingsFile, DebuglogForcesLevel2AndSyslog) {
  Write(R"({"debuglog":1})");
  SetDebugLevel(1);
  ApplyDebugSettings(Settings::Read());
  EXPECT_EQ(DebugLevel(), 2);
  EXPECT_TRUE(DebugToSyslog());
}

TEST_F(SettingsFile, DebuglogMayBeAnyNumberButZero) {
  Write(R"({"debuglog":-3})");
  ApplyDebugSettings(Settings::Read());
  EXPECT_EQ(DebugLevel(), 2);
  EXPECT_TRUE(DebugToSyslog());
}

TEST_F(SettingsFile, DebuglogZeroKeepsTheLevel) {
  Write(R"({"debuglog":0})");
  SetDebugLevel(1);
  SetDebugToSyslog(1);
  ApplyDebugSettings(Settings::Read());
  EXPECT_EQ(DebugLevel(), 1);
  EXPECT_FALSE(DebugToSyslog());
}

TEST_F(SettingsFile, WithoutDebuglogNothingChanges) {
  SetDebugLevel(1);
  SetDebugToSyslog(1);
  ApplyDebugSettings(Settings::Read());
  for (const char* text : {"{}", R"({"debuglog":"1"})", R"({"debuglog":true})", "not json", "[]"}) {
    Write(text);
    ApplyDebugSettings(Settings::Read());
    EXPECT_EQ(DebugLevel(), 1) << text;
    EXPECT_TRUE(DebugToSyslog()) << text;
  }
}

}  // namespace
}  // namespace kova
