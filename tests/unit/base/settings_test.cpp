#include "base/settings.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "base/debug.h"

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

TEST_F(SettingsFile, MayBeMissing) {
  errno = 0;
  const Settings settings = Settings::Read();
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(settings.IsUsable());
  EXPECT_EQ(settings.Integer("debuglog"), std::nullopt);
  EXPECT_EQ(settings.Text("server"), std::nullopt);
  EXPECT_FALSE(settings.IsOn("skipdns01"));
}

TEST_F(SettingsFile, IsLikeAMissingOneWhenItHoldsNoObject) {
  for (const char* text : kUnusable) {
    Write(text);
    const Settings settings = Settings::Read();
    EXPECT_FALSE(settings.IsUsable()) << text;
    EXPECT_EQ(settings.Integer("debuglog"), std::nullopt) << text;
  }
}

TEST_F(SettingsFile, GivesValuesOfTheRightType) {
  Write(R"({"renew_before_expire_days": 10, "server": "http://ca/", "skipdns01": true})");
  const Settings settings = Settings::Read();
  EXPECT_TRUE(settings.IsUsable());
  EXPECT_EQ(settings.Integer("renew_before_expire_days"), 10);
  EXPECT_EQ(settings.Text("server"), "http://ca/");
  EXPECT_TRUE(settings.IsOn("skipdns01"));
}

TEST_F(SettingsFile, TakesAnEmptyObject) {
  Write("{}");
  const Settings settings = Settings::Read();
  EXPECT_TRUE(settings.IsUsable());
  EXPECT_EQ(settings.Integer("renew_before_expire_days"), std::nullopt);
  EXPECT_EQ(settings.Text("server"), std::nullopt);
  EXPECT_FALSE(settings.IsOn("skipdns01"));
}

TEST_F(SettingsFile, HasNoIntegerInAnotherType) {
  for (const char* value : {"\"10\"", "true", "null", "[]", "{}", "1.5", "99999999999"}) {
    Write(std::string(R"({"key":)") + value + "}");
    EXPECT_EQ(Settings::Read().Integer("key"), std::nullopt) << value;
  }
}

TEST_F(SettingsFile, HasNoTextInAnotherType) {
  for (const char* value : {"10", "true", "null", "[]", "{}", "1.5"}) {
    Write(std::string(R"({"key":)") + value + "}");
    EXPECT_EQ(Settings::Read().Text("key"), std::nullopt) << value;
  }
}

TEST_F(SettingsFile, IsOnForTrueAlone) {
  for (const char* value : {"false", "1", "\"true\"", "null", "[true]", "{}"}) {
    Write(std::string(R"({"key":)") + value + "}");
    EXPECT_FALSE(Settings::Read().IsOn("key")) << value;
  }
}

TEST_F(SettingsFile, IsReadAnewEachTime) {
  Write(R"({"key":1})");
  EXPECT_EQ(Settings::Read().Integer("key"), 1);
  Write(R"({"key":2})");
  EXPECT_EQ(Settings::Read().Integer("key"), 2);
}

TEST_F(SettingsFile, DebuglogForcesLevel2AndSyslog) {
  Write(R"({"debuglog":1})");
  SetDebugLevel(1);
  ApplyDebugSettings();
  EXPECT_EQ(DebugLevel(), 2);
  EXPECT_TRUE(DebugToSyslog());
}

TEST_F(SettingsFile, DebuglogMayBeAnyNumberButZero) {
  Write(R"({"debuglog":-3})");
  ApplyDebugSettings();
  EXPECT_EQ(DebugLevel(), 2);
  EXPECT_TRUE(DebugToSyslog());
}

TEST_F(SettingsFile, DebuglogZeroKeepsTheLevel) {
  Write(R"({"debuglog":0})");
  SetDebugLevel(1);
  SetDebugToSyslog(1);
  ApplyDebugSettings();
  EXPECT_EQ(DebugLevel(), 1);
  EXPECT_FALSE(DebugToSyslog());
}

TEST_F(SettingsFile, WithoutDebuglogNothingChanges) {
  SetDebugLevel(1);
  SetDebugToSyslog(1);
  ApplyDebugSettings();
  for (const char* text : {"{}", R"({"debuglog":"1"})", R"({"debuglog":true})", "not json", "[]"}) {
    Write(text);
    ApplyDebugSettings();
    EXPECT_EQ(DebugLevel(), 1) << text;
    EXPECT_TRUE(DebugToSyslog()) << text;
  }
}

TEST_F(SettingsFile, NamesTheDirectory) {
  Write(R"({"server":"http://127.0.0.1:14000/dir"})");
  EXPECT_EQ(DefaultDirectory(), "http://127.0.0.1:14000/dir");
}

TEST_F(SettingsFile, WithoutAServerTheDirectoryIsTheProductionOne) {
  const std::string production = "https://acme-v02.api.letsencrypt.org/directory";
  EXPECT_EQ(DefaultDirectory(), production);
  for (const char* text : {"{}", R"({"server":5})", "not json"}) {
    Write(text);
    EXPECT_EQ(DefaultDirectory(), production) << text;
  }
}

}  // namespace
}  // namespace kova
