#include "issue_fixture.h"

namespace kova::test {
namespace {

constexpr char kOn[] = R"({"skipdns01": true, "unpaddedretry": true, "asyncfinalize": true})";

HttpReply Malformed() { return ScriptedCa::Problem(400, "malformed", "illegal base64 data"); }

// Requests with a name whose request text ends in "=", unless said otherwise.
class Padding : public IssueTest {
 protected:
  Padding() { Settings(kOn); }

  // The first name that makes the request's text end as wished.
  std::vector<std::string> NameWithPadding(bool padded) {
    for (std::string name = "a.example"; name.size() < 13; name.insert(0, "a")) {
      ca_.ClearRequests();
      New({name});
      const bool is_padded = Sent(kFinalize).at(0).back() == '=';
      ca_.ClearRequests();
      if (is_padded == padded) return {name};
    }
    ADD_FAILURE() << "no such name";
    return {};
  }

  // The DER texts that were sent, oldest first.
  [[nodiscard]] std::vector<std::string> Sent(const std::string& route) const {
    std::vector<std::string> texts;
    for (const Jws& request : ca_.Signed(route)) {
      const Json::Value payload = Parsed(request.payload);
      texts.push_back(payload[payload.getMemberNames().at(0)].asString());
    }
    return texts;
  }

  static std::string Stripped(std::string text) { return text.erase(text.find('=')); }
};

TEST_F(Padding, IsLeftOutWhereTheCaCallsItMalformed) {
  const auto names = NameWithPadding(true);
  ca_.Once(kFinalize, Malformed());
  EXPECT_EQ(ErrorOfNew(names), "nothing");
  const auto sent = Sent(kFinalize);
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[1], Stripped(sent[0]));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Padding, IsLeftOutOnlyOnce) {
  const auto names = NameWithPadding(true);
  ca_.Once(kFinalize, Malformed(), 2);
  EXPECT_EQ(ErrorOfNew(names), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
  EXPECT_EQ(ca_.Count(kFinalize), 2U);
}

TEST_F(Padding, IsNotAtFaultWhenThereIsNone) {
  const auto names = NameWithPadding(false);
  ca_.Once(kFinalize, Malformed());
  EXPECT_EQ(ErrorOfNew(names), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
  EXPECT_EQ(ca_.Count(kFinalize), 1U);
}

TEST_F(Padding, IsKeptOnAnyOtherRefusal) {
  const auto names = NameWithPadding(true);
  for (const HttpReply& reply :
       {ScriptedCa::Problem(400, "badCSR", "no"), ScriptedCa::Problem(403, "malformed", "no"),
        HttpReply::Json(400, "[]"), HttpReply::Json(400, R"({"type": 5})")}) {
    ca_.ClearRequests();
    ca_.Once(kFinalize, reply);
    EXPECT_EQ(ErrorOfNew(names), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
    EXPECT_EQ(ca_.Count(kFinalize), 1U) << reply.body;
  }
}

TEST_F(Padding, IsKeptWithoutTheSettingsLeave) {
  const auto names = NameWithPadding(true);
  for (const char* settings :
       {R"({"unpaddedretry": false})", R"({"unpaddedretry": 1})", "{}", "{"}) {
    Settings(settings);
    ca_.Once(kFinalize, Malformed());
    EXPECT_EQ(ErrorOfNew(names), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)")
        << settings;
    EXPECT_EQ(ca_.Count(kFinalize), 1U) << settings;
  }
}

TEST_F(Padding, IsLeftOutBeforeTheOrderIsWaitedFor) {
  const auto names = NameWithPadding(true);
  ca_.Once(kFinalize, Malformed());
  ca_.Once(kFinalize, ScriptedCa::Problem(403, "orderNotReady", "wait"));
  ca_.Once(kOrder, HttpReply::Json(200, ca_.Order("ready", false)));
  EXPECT_EQ(ErrorOfNew(names), "nothing");
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kFinalize, kOrder, kFinalize, kCertificate));
}

TEST_F(Padding, IsLeftOutOfACertificateToRevoke) {
  WriteFile(std::string(kArchive) + "/abc123/cert.pem",
            "-----BEGIN CERTIFICATE-----\nMII+\nA/==\n-----END CERTIFICATE-----\n");
  ca_.Once("POST /revoke", Malformed());
  client_->RevokeCertificate(std::string(kArchive) + "/abc123");
  EXPECT_THAT(Sent("POST /revoke"), ElementsAre("MII-A_==", "MII-A_"));
}

}  // namespace
}  // namespace kova::test
