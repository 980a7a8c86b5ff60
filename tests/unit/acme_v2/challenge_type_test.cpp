#include "client_fixture.h"

namespace kova::test {
namespace {

constexpr char kInZone[] = "x.box.ddns.example";

// A host that can prove names of the vendor's zone by dns-01; the CA plays the DDNS service, too.
class BothTypes : public ClientTest {
 protected:
  BothTypes() {
    WriteFile(kSettingsFile, R"({"kovaddns": ")" + ca_.Url("/ddns") + "\"}");
    WriteFile(kDeviceRecord, R"({"router": "none", "ddns_hostname": "box.ddns.example",
                                 "ddns_name_server": "127.0.0.1", "serial_number": "SN-1",
                                 "account": {"id": "id-1", "auth_key": "key-1"}})");
    ca_.Always("GET /ddns", HttpReply::Json(200, R"({"code": "good"})"));
  }

  std::string Prove(const std::vector<std::string>& names) {
    client_ = OrderedClient(names);
    return ErrorOf([this] { client_->AuthorizeOrder(order_); });
  }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST_F(BothTypes, PreferDns01) {
  EXPECT_EQ(Prove({kInZone}), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /authz/0", "GET /ddns", "POST /challenge/0/dns-01",
                                        "POST /authz/0", "GET /ddns"));
  const std::string key_authorization =
      ScriptedCa::Token(kInZone) + "." +
      DigestBase64Url(R"({"e":"AQAB","kty":"RSA","n":")" + AccountKey()["n"].asString() + "\"}");
  const std::string rest =
      std::string("&hostname=") + kInZone +
      "&tolu_id=id-1&auth_key=key-1&serial=SN-1&txt=" + DigestBase64Url(key_authorization);
  EXPECT_EQ(ca_.Requests("GET /ddns")[0].query, "_=letsencrypt%2Fcreate" + rest);
  EXPECT_EQ(ca_.Requests("GET /ddns")[1].query, "_=letsencrypt%2Fdelete" + rest);
  EXPECT_EQ(client_->ChallengeTypes().size(), 2U);
  EXPECT_FALSE(Exists("/var/lib/letsencrypt"));
}

TEST_F(BothTypes, ProveAWildcardByItsBaseName) {
  EXPECT_EQ(Prove({"*.box.ddns.example"}), "nothing");
  EXPECT_THAT(ca_.Requests("GET /ddns").at(0).query,
              HasSubstr("create&hostname=box.ddns.example&"));
}

TEST_F(BothTypes, LoseDns01OverANameOutsideTheZone) {
  OutputCapture output(1);
  EXPECT_EQ(Prove({"a.example"}), "nothing");
  EXPECT_THAT(output.Debug(), Contains("dns-01 is not support for a.example"));
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
  EXPECT_EQ(ca_.Count("POST /challenge/0/http-01"), 1U);
}

TEST_F(BothTypes, DoNotGetDns01BackForALaterName) {
  EXPECT_EQ(Prove({"a.example", kInZone}), "nothing");
  EXPECT_EQ(ca_.Count("POST /challenge/1/http-01"), 1U);
  EXPECT_EQ(ca_.Count("GET /ddns"), 0U);
}

TEST_F(BothTypes, AreTriedInOrderUntilOneIsOffered) {
  ca_.Offer({"tls-alpn-01", "http-01"});
  EXPECT_EQ(Prove({kInZone}), "nothing");
  EXPECT_EQ(ca_.Count("POST /challenge/0/http-01"), 1U);
  EXPECT_EQ(client_->ChallengeTypes().size(), 2U);  // what is not offered stays allowed
}

TEST_F(BothTypes, AreUsedUpTogetherWhenNeitherIsOffered) {
  ca_.Offer({"tls-alpn-01"});
  EXPECT_EQ(Prove({kInZone}), "200 client_v2: do new auth by path: failed to do challenge.");
  EXPECT_FALSE(client_->HasChallengeTypes());
}

TEST_F(BothTypes, StayAllowedWhenDns01CannotBeSetUp) {
  ca_.Always("GET /ddns", HttpReply::Json(200, R"({"code": "badauth"})"));
  OutputCapture output(1);
  EXPECT_EQ(Prove({kInZone}),
            "202 client_v2: Failed to setup challegne for x.box.ddns.example of dns-01");
  EXPECT_THAT(output.Debug(),
              Contains("Failed to setup challenge for x.box.ddns.example with type dns-01."));
  EXPECT_EQ(client_->ChallengeTypes().size(), 2U);
  EXPECT_EQ(ca_.Count("GET /ddns"), 1U);
}

TEST_F(BothTypes, StayAllowedWhenTheDdnsServiceIsGone) {
  ca_.Always("GET /ddns", HttpReply::Drop());
  EXPECT_EQ(Prove({kInZone}), "100 client_network: Server is not reachable.");
  EXPECT_EQ(client_->ChallengeTypes().size(), 2U);
}

TEST_F(BothTypes, LoseDns01WhenItsValidationFails) {
  ca_.Once("POST /authz/0", HttpReply::Json(200, ca_.Authorization(kInZone, "pending")));
  ca_.Once("POST /authz/0", HttpReply::Json(200, ca_.FailedAuthorization(kInZone, "dns-01", "dns",
                                                                         "no TXT record")));
  OutputCapture output(1);
  EXPECT_EQ(Prove({kInZone}), "109 client_v2: no TXT record");
  EXPECT_THAT(output.Debug(),
              Contains("Failed to do challenge for x.box.ddns.example with type dns-01."));
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
  EXPECT_EQ(ca_.Requests("GET /ddns").back().query.substr(0, 23), "_=letsencrypt%2Fdelete&");

  ca_.ClearRequests();
  client_->AuthorizeOrder(client_->NewOrder({kInZone}));
  EXPECT_EQ(ca_.Count("POST /challenge/0/http-01"), 1U);
}

TEST_F(BothTypes, KeepTheCasErrorWhenTheRecordCannotBeDeleted) {
  ca_.Once("POST /authz/0", HttpReply::Json(200, ca_.Authorization(kInZone, "pending")));
  ca_.Once("POST /authz/0",
           HttpReply::Json(200, ca_.FailedAuthorization(kInZone, "dns-01", "unauthorized", "no")));
  ca_.Once("GET /ddns", HttpReply::Json(200, R"({"code": "good"})"));
  ca_.Always("GET /ddns", HttpReply::Drop());
  EXPECT_EQ(Prove({kInZone}), "110 client_v2: no");
}

TEST_F(BothTypes, AreUsedUpByAnAttemptOrNot) {
  EXPECT_EQ(Prove({kInZone}), "nothing");
  EXPECT_FALSE(client_->TypeUsedUp());
  ca_.Once("POST /challenge/0/dns-01", HttpReply::Text(500, "no"));
  EXPECT_EQ(Prove({kInZone}), "200 client_v2: challenge: unexpect httpcode.");
  EXPECT_TRUE(client_->TypeUsedUp());  // validation failed
  client_->NewOrder({kInZone});
  EXPECT_FALSE(client_->TypeUsedUp());  // another attempt
  EXPECT_EQ(Prove({"a.example"}), "nothing");
  EXPECT_TRUE(client_->TypeUsedUp());  // dns-01 cannot serve the name
  ca_.Offer({"tls-alpn-01"});
  Prove({kInZone});
  EXPECT_TRUE(client_->TypeUsedUp());  // nothing that is offered can be done
}

TEST_F(BothTypes, AreNotUsedUpByAnOrderThatIsRefused) {
  client_ = ReadyClient();
  client_->AuthorizeOrder(client_->NewOrder({"a.example"}));
  EXPECT_TRUE(client_->TypeUsedUp());
  ca_.Once("POST /new-order", HttpReply::Text(500, "no"));
  EXPECT_NE(ErrorOf([this] { client_->NewOrder({"a.example"}); }), "nothing");
  EXPECT_FALSE(client_->TypeUsedUp());
}

TEST_F(BothTypes, BecomeOneWithTheSettingsWord) {
  WriteFile(kSettingsFile, kHttpOnly);
  EXPECT_EQ(Prove({kInZone}), "nothing");
  EXPECT_EQ(ca_.Count("POST /challenge/0/http-01"), 1U);
  EXPECT_EQ(ca_.Count("GET /ddns"), 0U);
}

constexpr char kCalls[] = "/tmp/router-calls";

// The bracket around all authorizations, seen through the hooks of the router.
class PortBracket : public ClientTest {
 protected:
  PortBracket() {
    WriteFile(kCalls, "");
    WriteHook("router-detect", std::string("echo detect >> ") + kCalls);
    WriteHook("router-rules", std::string("echo rules \"$@\" >> ") + kCalls +
                                  "\n[ $# -gt 1 ] && printf '80 ok\\n443 ok\\n'; exit 0");
    ca_.Before("POST /challenge/0/http-01", [] { Note("first"); });
    ca_.Before("POST /challenge/1/http-01", [] { Note("second"); });
  }

  static void Note(const std::string& text) { WriteFile(kCalls, ReadFile(kCalls) + text + "\n"); }

  std::string Prove() {
    const auto client = OrderedClient({"a.example", "b.example"});
    return ErrorOf([&] { client->AuthorizeOrder(order_); });
  }
};

TEST_F(PortBracket, OpensOnceAndClosesOnce) {
  OutputCapture output(1);
  EXPECT_EQ(Prove(), "nothing");
  EXPECT_THAT(ReadLines(kCalls), ElementsAre("detect", "rules Letsencrypt 80:80 443:443", "first",
                                             "second", "rules Letsencrypt"));
  EXPECT_THAT(output.Debug(), Not(Contains("close port 80.")));
}

TEST_F(PortBracket, GoesOnAndClosesWhenThePortsCannotBeOpened) {
  WriteHook("router-detect", "exit 3");
  OutputCapture output(1);
  EXPECT_EQ(Prove(), "nothing");
  EXPECT_THAT(output.Debug(), Contains("Failed to port map router detect. [3]"));
  EXPECT_THAT(output.Debug(), Contains("failed to open port 80."));
  EXPECT_THAT(ReadLines(kCalls), ElementsAre("first", "second", "rules Letsencrypt"));
}

TEST_F(PortBracket, ClosesBeforeAnErrorIsOut) {
  ca_.Once("POST /challenge/0/http-01", HttpReply::Text(500, "no"));
  OutputCapture output(1);
  EXPECT_EQ(Prove(), "200 client_v2: challenge: unexpect httpcode.");
  EXPECT_THAT(ReadLines(kCalls), ElementsAre("detect", "rules Letsencrypt 80:80 443:443", "first",
                                             "rules Letsencrypt"));
  EXPECT_EQ(output.Debug().back(), "close port 80.");
}

}  // namespace
}  // namespace kova::test
