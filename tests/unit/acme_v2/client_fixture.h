// A client against a scripted CA, on a host without router, settings or accounts.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "acme/account_store.h"
#include "acme_v2/client_v2.h"
#include "base/json.h"
#include "error_text.h"
#include "host_files.h"
#include "output_capture.h"
#include "scripted_ca.h"
#include "sleep_counter.h"
#include "syslog_capture.h"

namespace kova::test {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

using Seconds = std::chrono::seconds;
using Milliseconds = std::chrono::milliseconds;
using Waits = std::vector<Milliseconds>;

// A document that the test wrote itself.
inline Json::Value Parsed(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(JsonFromText(text, value)) << text;
  return value;
}

// One key for all tests of the program: making one takes long.
inline const Json::Value& AccountKey() {
  static const Json::Value key = RsaKey::Generate()->ToJson();
  return key;
}

// Names of http-01 alone; the tests of dns-01 bring their own settings.
inline constexpr char kHttpOnly[] = R"({"skipdns01": true})";

class ClientTest : public ::testing::Test {
 protected:
  ClientTest() {
    ResetHost();
    WriteFile(kSettingsFile, kHttpOnly);
  }

  // The record of an account of `ca_` that LoadAccount takes.
  [[nodiscard]] Json::Value AccountInfo(const std::string& contact = "a@b.example") const {
    Json::Value info(Json::objectValue);
    info["version"] = 2;
    info["directory"] = ca_.DirectoryUrl();
    info["contact"] = contact;
    info["account_url"] = ca_.AccountUrl();
    return info;
  }

  // A client with directory, account and one nonce. Nothing of that is left in the CA's sight.
  std::unique_ptr<AcmeV2Client> ReadyClient() {
    account_folder_ = CreateAccountFolder("client_v2", AccountInfo(), AccountKey());
    auto client = std::make_unique<AcmeV2Client>(ca_.DirectoryUrl(), Settings::Read());
    client->SetupDirectory();
    client->LoadAccount(account_folder_);
    ca_.ClearRequests();
    return client;
  }

  // The same after an order for the names.
  std::unique_ptr<AcmeV2Client> OrderedClient(const std::vector<std::string>& names) {
    auto client = ReadyClient();
    order_ = client->NewOrder(names);
    ca_.ClearRequests();
    return client;
  }

  ScriptedCa ca_;
  SyslogCapture syslog_;
  SleepCounter sleeps_;
  std::string account_folder_;
  Order order_;  // of OrderedClient
};

}  // namespace kova::test
