#include "issue_fixture.h"

namespace kova::test {
namespace {

constexpr char kOn[] = R"({"skipdns01": true, "strictencoding": true})";

// What the CA is sent with `strictencoding` on, and that without it nothing differs.
class StrictEncoding : public IssueTest {
 protected:
  StrictEncoding() { Settings(kOn); }

  // The request texts of names of three lengths: two of them need padding, one does not.
  std::vector<std::string> Csrs() {
    std::vector<std::string> texts;
    for (const char* name : {"a.example", "ab.example", "abc.example"}) {
      ca_.ClearRequests();
      New({name});
      texts.push_back(Parsed(ca_.Signed(kFinalize).at(0).payload)["csr"].asString());
    }
    return texts;
  }

  std::string RevokedText() {
    WriteFile(std::string(kArchive) + "/abc123/cert.pem",
              "-----BEGIN CERTIFICATE-----\nMII+\nA/==\n-----END CERTIFICATE-----\n");
    client_->RevokeCertificate(std::string(kArchive) + "/abc123");
    return ca_.Signed("POST /revoke").back().payload;
  }
};

size_t Padded(const std::vector<std::string>& texts) {
  return static_cast<size_t>(std::count_if(
      texts.begin(), texts.end(), [](const std::string& text) { return text.back() == '='; }));
}

TEST_F(StrictEncoding, LeavesNoLineFeedInHeaderAndPayload) {
  client_->AuthorizeOrder(client_->NewOrder({"a.example"}));
  New();
  ASSERT_FALSE(ca_.Signed().empty());
  for (const Jws& request : ca_.Signed()) {
    EXPECT_EQ(request.header_text.back(), '}');
    EXPECT_TRUE(request.payload.empty() || request.payload.back() == '}') << request.payload;
    EXPECT_TRUE(Verifies(request, AccountKey()));
  }
}

TEST_F(StrictEncoding, RegistersWithoutALineFeedToo) {
  client_->RegisterAccount("a@b.example");
  const Jws request = ca_.Signed("POST /new-account").at(0);
  EXPECT_EQ(request.payload, R"({"contact":["mailto:a@b.example"],"termsOfServiceAgreed":true})");
  EXPECT_EQ(request.header_text.back(), '}');
}

TEST_F(StrictEncoding, LeavesOutThePaddingFromTheFirstRequestOn) {
  EXPECT_EQ(Padded(Csrs()), 0U);
  EXPECT_EQ(ca_.Count(kFinalize), 1U);
  EXPECT_EQ(RevokedText(), R"({"certificate":"MII-A_"})");
}

TEST_F(StrictEncoding, SendsNothingTwice) {
  ca_.Once(kFinalize, ScriptedCa::Problem(400, "malformed", "illegal base64 data"));
  EXPECT_EQ(ErrorOfNew(), "200 client_v2: new-cert: Unexpect httpcode. (new-cert)");
  EXPECT_EQ(ca_.Count(kFinalize), 1U);
}

TEST_F(StrictEncoding, IsOffUnlessTheSettingIsTrue) {
  for (const char* settings : {R"({"strictencoding": false})", R"({"strictencoding": 1})",
                               R"({"strictencoding": "true"})", "{}", "{"}) {
    Settings(settings);
    EXPECT_EQ(Padded(Csrs()), 2U) << settings;
    EXPECT_EQ(ca_.Signed(kFinalize).back().payload.back(), '\n') << settings;
    EXPECT_EQ(ca_.Signed(kFinalize).back().header_text.back(), '\n') << settings;
    EXPECT_EQ(RevokedText(), "{\"certificate\":\"MII-A_==\"}\n") << settings;
  }
}

}  // namespace
}  // namespace kova::test
