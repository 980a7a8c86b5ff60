// A host with a name in the vendor's zone, an account there, and a scripted DDNS service.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "challenge/challenge.h"
#include "error_text.h"
#include "host_files.h"
#include "jws_reader.h"
#include "loopback_server.h"
#include "net/client_network.h"
#include "output_capture.h"
#include "sleep_counter.h"
#include "syslog_capture.h"

namespace kova::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ChallengeTest : public ::testing::Test {
 protected:
  ChallengeTest() { ResetHost(); }

  SyslogCapture syslog_;
  HttpClient http_;
};

inline constexpr char kDomain[] = "x.box.ddns.example";
inline constexpr char kKeyAuthorization[] = "token.thumbprint";

// For dns-01: the device record and settings point to `service_`.
class DdnsTest : public ChallengeTest {
 protected:
  DdnsTest() {
    WriteFile(kDeviceRecord, Device("box.ddns.example"));
    WriteFile(kSettingsFile, R"({"kovaddns": ")" + service_.Url("/main.php") + "\"}");
    service_.On("GET /main.php", HttpReply::Json(200, R"({"code": "good"})"));
  }

  static std::string Device(const std::string& hostname) {
    return R"({"router": "none", "ddns_hostname": ")" + hostname +
           R"(", "ddns_name_server": "127.0.0.1", "serial_number": "SN-1",
              "account": {"id": "id-1", "auth_key": "key-1"}})";
  }

  // Sets a challenge up and tears it down by its destruction; true when the set-up succeeded.
  bool Run(const std::string& domain = kDomain) {
    KovaDns01Challenge challenge(http_);
    challenge.Set(domain, "token", kKeyAuthorization);
    return challenge.setup();
  }

  static std::string Txt() { return DigestBase64Url(kKeyAuthorization); }

  // The query texts of the requests so far.
  std::vector<std::string> Queries() const {
    std::vector<std::string> queries;
    for (const HttpRequest& request : service_.Requests()) queries.push_back(request.query);
    return queries;
  }

  LoopbackServer service_;
  SleepCounter sleeps_;
};

}  // namespace kova::test
