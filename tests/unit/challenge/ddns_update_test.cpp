#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>

#include "challenge_fixture.h"
#include "platform/signals.h"

namespace kova::test {
namespace {

class DdnsUpdate : public DdnsTest {
 protected:
  static std::string Query(const std::string& action) {
    return "_=letsencrypt%2F" + action + "&hostname=" + kDomain +
           "&tolu_id=id-1&auth_key=key-1&serial=SN-1&txt=" + Txt();
  }

  void Answer(const HttpReply& reply) {
    service_.Reset("GET /main.php");
    service_.On("GET /main.php", reply);
  }
};

TEST_F(DdnsUpdate, CreatesTheRecordAndDeletesItAtTheEnd) {
  EXPECT_TRUE(Run());
  EXPECT_THAT(service_.Routes(), ElementsAre("GET /main.php", "GET /main.php"));
  EXPECT_THAT(Queries(), ElementsAre(Query("create"), Query("delete")));
}

TEST_F(DdnsUpdate, DeletesARecordWhoseCreationWasBrokenOff) {
  std::atomic<pid_t> child = 0;
  service_.On("GET /main.php", [&child](const HttpRequest& request) {
    while (child == 0) usleep(1000);
    if (request.query.find("create") != std::string::npos) {
      kill(child, SIGTERM);
      usleep(700'000);  // the reply comes when nobody waits for it any more
    }
    return HttpReply::Json(200, R"({"code": "good"})");
  });
  child = fork();
  if (child == 0) platform::RunInterruptibly("tag", [this] { return Run() ? 1 : 2; });
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
  EXPECT_THAT(Queries(), ElementsAre(Query("create"), Query("delete")));
}

TEST_F(DdnsUpdate, TellsItsStepsAtLevelOne) {
  OutputCapture output(1);
  EXPECT_TRUE(Run());
  const std::string create = service_.Url("/main.php?") + Query("create");
  const std::string remove = service_.Url("/main.php?") + Query("delete");
  std::vector<std::string> messages = output.Debug();
  // Of the seven identical answers of the probe only one is kept.
  messages.erase(std::unique(messages.begin(), messages.end()), messages.end());
  EXPECT_THAT(
      messages,
      ElementsAre("Setup DDNS: TXT [_acme-challenge.x.box.ddns.example][" + Txt() + "]",
                  "DDNS Curl: [" + create + "]", "GET Request: " + create,
                  R"(Dns01 challenge: Setup [{"code": "good"}].)", "Vaild DNS Ready: " + Txt(),
                  "failed to query TXT dns _acme-challenge.x.box.ddns.example:-1 "
                  "Connection refused",
                  "DNS may not ready, but still try", "DDNS Curl: [" + remove + "]",
                  "GET Request: " + remove, R"(Dns01 challenge: Teardown [{"code": "good"}].)"));
}

TEST_F(DdnsUpdate, IsSilentAtLevelZero) {
  OutputCapture output(0);
  EXPECT_TRUE(Run());
  EXPECT_EQ(output.Text(), "");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(DdnsUpdate, TriesSevenTimesForARecordThatNeverShowsUp) {
  OutputCapture output(1);
  EXPECT_TRUE(Run());
  const std::vector<std::string> messages = output.Debug();
  EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                          [](const std::string& line) {
                            return line.starts_with("failed to query TXT dns ");
                          }),
            7);
  EXPECT_EQ(sleeps_.Durations(),
            std::vector<std::chrono::milliseconds>(6, std::chrono::seconds(1)));
}

TEST_F(DdnsUpdate, RefusesANameOutsideTheZoneWithoutARequest) {
  OutputCapture output(1);
  EXPECT_FALSE(Run("a.example"));
  EXPECT_THAT(output.Debug(), ElementsAre("[a.example] is not subdomain of kova ddns"));
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(DdnsUpdate, RefusesANameThatWouldChangeTheRequest) {
  for (const char* domain :
       {"box.ddns.example&txt=x", "box.ddns.example#", "box.ddns.example/x", "box.ddns.example?x",
        "box.ddns.example x", "box.ddns.example\r\nX: y", "box.ddns.example%00"}) {
    EXPECT_FALSE(Run(domain)) << domain;
  }
  EXPECT_FALSE(Run(std::string("box.ddns.example\0x", 18)));
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(DdnsUpdate, NeedsAnAccount) {
  WriteFile(kDeviceRecord, R"({"ddns_hostname": "box.ddns.example", "serial_number": "SN-1"})");
  OutputCapture output(1);
  EXPECT_FALSE(Run());
  EXPECT_THAT(output.Debug(), ElementsAre("Failed to get Tolu Account."));
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(DdnsUpdate, NeedsASerialNumberOfFewerThan36Bytes) {
  const std::string rest =
      R"(", "ddns_hostname": "box.ddns.example", "account": {"id": "i", "auth_key": "k"}})";
  const std::string longest(35, 'S');
  WriteFile(kDeviceRecord, R"({"serial_number": ")" + longest + "S" + rest);
  {
    OutputCapture output(1);
    EXPECT_FALSE(Run());
    EXPECT_THAT(output.Debug(), ElementsAre("Failed to get serial number."));
  }
  EXPECT_THAT(Queries(), IsEmpty());
  WriteFile(kDeviceRecord, R"({"serial_number": ")" + longest + rest);
  EXPECT_TRUE(Run());
  EXPECT_THAT(Queries()[0], ::testing::HasSubstr("&serial=" + longest + "&txt="));
}

TEST_F(DdnsUpdate, FailsSilentlyWithoutUsableSettings) {
  for (const char* settings : {"{", "", "[]", "null", "\"text\""}) {
    WriteFile(kSettingsFile, settings);
    OutputCapture output(1);
    EXPECT_FALSE(Run()) << settings;
    EXPECT_THAT(output.Debug(),
                ElementsAre("Setup DDNS: TXT [_acme-challenge.x.box.ddns.example][" + Txt() + "]"))
        << settings;
  }
  EXPECT_THAT(Queries(), IsEmpty());
}

TEST_F(DdnsUpdate, DeletesNothingWhenTheSettingsAreGoneByThen) {
  {
    KovaDns01Challenge challenge(http_);
    challenge.Set(kDomain, "token", kKeyAuthorization);
    EXPECT_TRUE(challenge.setup());
    WriteFile(kSettingsFile, "{");
    EXPECT_NO_THROW(challenge.teardown());
  }
  EXPECT_THAT(Queries(), ElementsAre(Query("create")));
}

TEST_F(DdnsUpdate, FailsOnAnyOtherStatusThan200) {
  for (const int status : {201, 204, 400, 403, 500, 503}) {
    Answer(HttpReply::Json(status, R"({"code": "good"})"));
    OutputCapture output(1);
    EXPECT_FALSE(Run()) << status;
    ASSERT_FALSE(output.Debug().empty());
    EXPECT_EQ(output.Debug().back(),
              "Failed to setup challenge by dns01 with [" + std::to_string(status) + "]");
  }
  EXPECT_EQ(Queries().size(), 6U);  // no record was made, none is deleted
}

class OtherCode : public DdnsUpdate, public ::testing::WithParamInterface<const char*> {};

TEST_P(OtherCode, MeansThatThereIsNoRecord) {
  Answer(HttpReply::Json(200, GetParam()));
  OutputCapture output(1);
  EXPECT_FALSE(Run());
  EXPECT_EQ(output.Debug().back(), std::string("Dns01 challenge: Setup [") + GetParam() + "].");
  EXPECT_THAT(Queries(), ElementsAre(Query("create")));
  EXPECT_THAT(sleeps_.Durations(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Replies, OtherCode,
                         ::testing::Values(R"({"code": "bad"})", R"({"code": "Good"})",
                                           R"({"code": "good "})", R"({"code": ""})",
                                           R"({"code": 200})", R"({"code": true})",
                                           R"({"code": ["good"]})", R"({"code": null})", "{}", "[]",
                                           "null", "17", R"("good")", R"(["code"])"));

TEST_F(DdnsUpdate, SaysThatAReplyIsNotJson) {
  for (const std::string& body : {std::string(), std::string("<html>good</html>"),
                                  std::string(R"({"code": "good")"), std::string(100000, '[')}) {
    Answer(HttpReply::Text(200, body));
    EXPECT_EQ(ErrorOf([this] { Run(); }), "200 client_network: body is not json.")
        << body.substr(0, 40);
  }
  EXPECT_EQ(Queries().size(), 4U);  // and nothing is deleted
}

TEST_F(DdnsUpdate, LetsAFailedTransferOut) {
  Answer(HttpReply::Drop());
  EXPECT_EQ(ErrorOf([this] { Run(); }), "100 client_network: Server is not reachable.");
  EXPECT_THAT(Queries(), ElementsAre(Query("create")));
}

TEST_F(DdnsUpdate, AsksForTheDeletionOnlyOnce) {
  {
    KovaDns01Challenge challenge(http_);
    challenge.Set(kDomain, "token", kKeyAuthorization);
    EXPECT_TRUE(challenge.setup());
    challenge.teardown();
  }
  EXPECT_THAT(Queries(), ElementsAre(Query("create"), Query("delete")));
}

TEST_F(DdnsUpdate, IsDeletedByTheTeardownItself) {
  KovaDns01Challenge challenge(http_);
  challenge.Set(kDomain, "token", kKeyAuthorization);
  ASSERT_TRUE(challenge.setup());
  challenge.teardown();
  EXPECT_THAT(Queries(), ElementsAre(Query("create"), Query("delete")));
}

TEST_F(DdnsUpdate, LetsATeardownsFailedTransferOut) {
  KovaDns01Challenge challenge(http_);
  challenge.Set(kDomain, "token", kKeyAuthorization);
  ASSERT_TRUE(challenge.setup());
  Answer(HttpReply::Drop());
  EXPECT_EQ(ErrorOf([&challenge] { challenge.teardown(); }),
            "100 client_network: Server is not reachable.");
}

TEST_F(DdnsUpdate, DoesNotMindWhatTheDeletionIsAnswered) {
  for (const HttpReply& reply : {HttpReply::Text(500, "no"), HttpReply::Text(200, "not JSON")}) {
    service_.Reset("GET /main.php");
    service_.On("GET /main.php", HttpReply::Json(200, R"({"code": "good"})"));
    service_.On("GET /main.php", reply);
    OutputCapture output(1);
    EXPECT_TRUE(Run());
    EXPECT_EQ(output.Debug().back(), "Dns01 challenge: Teardown [" + reply.body + "].");
  }
}

TEST_F(DdnsUpdate, SurvivesADestructionWhenTheServiceIsGone) {
  service_.Reset("GET /main.php");
  service_.On("GET /main.php", HttpReply::Json(200, R"({"code": "good"})"));
  service_.On("GET /main.php", HttpReply::Drop());
  EXPECT_EQ(ErrorOf([this] { EXPECT_TRUE(Run()); }), "nothing");
  EXPECT_EQ(Queries().size(), 2U);
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(DdnsUpdate, SurvivesADestructionDuringAnotherFailure) {
  service_.Reset("GET /main.php");
  service_.On("GET /main.php", HttpReply::Json(200, R"({"code": "good"})"));
  service_.On("GET /main.php", HttpReply::Drop());
  EXPECT_EQ(ErrorOf([this] {
              const auto challenge = ChallengeFactory("dns-01", http_);
              challenge->Set(kDomain, "token", kKeyAuthorization);
              EXPECT_TRUE(challenge->setup());
              throw SLError(109, "the CA said no", "client_v2", 1);
            }),
            "109 client_v2: the CA said no");
  EXPECT_EQ(Queries().size(), 2U);
}

TEST_F(DdnsUpdate, SendsNothingWithoutASetup) {
  { KovaDns01Challenge challenge(http_); }
  EXPECT_THAT(Queries(), IsEmpty());
}

}  // namespace
}  // namespace kova::test
