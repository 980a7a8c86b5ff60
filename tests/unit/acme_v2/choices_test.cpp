// What may be chosen for a certificate: by the settings, or for this one alone.
#include "../crypto/made_certificate.h"
#include "crypto/encoding.h"
#include "issue_fixture.h"

namespace kova::test {
namespace {

class Choices : public IssueTest {
 protected:
  // The order's payload with these settings and choices.
  std::string Ordered(const std::string& settings, const std::string& profile = {}) {
    WriteFile(kSettingsFile, settings);
    client_ = ReadyClient();
    order_ = client_->NewOrder({"a.example"}, profile);
    return ca_.Signed("POST /new-order").at(0).payload;
  }

  void OfferProfiles() {
    Json::Value directory = Parsed(ca_.Directory());
    directory["meta"]["profiles"]["short"] = "lives a week";
    directory["meta"]["profiles"]["long"] = "lives a quarter";
    ca_.Always("GET /directory", HttpReply::Json(200, directory.toStyledString()));
  }
};

constexpr char kPlainOrder[] = "{\"identifiers\":[{\"type\":\"dns\",\"value\":\"a.example\"}]}\n";
constexpr char kShortOrder[] =
    "{\"identifiers\":[{\"type\":\"dns\",\"value\":\"a.example\"}],\"profile\":\"short\"}\n";

TEST_F(Choices, OfAProfileGoIntoTheOrder) {
  OfferProfiles();
  EXPECT_EQ(Ordered("{}"), kPlainOrder);
  EXPECT_EQ(Ordered(R"({"profile": "short"})"), kShortOrder);
  EXPECT_EQ(Ordered("{}", "short"), kShortOrder);
  EXPECT_EQ(Ordered(R"({"profile": "long"})", "short"), kShortOrder);
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Choices, OfAProfileThatTheCaHasNotAreLeftOut) {
  for (const char* profiles : {"{}", "null", "[\"short\"]", "\"short\"", "5"}) {
    syslog_.Clear();
    Json::Value directory = Parsed(ca_.Directory());
    directory["meta"]["profiles"] = Parsed(profiles);
    ca_.Always("GET /directory", HttpReply::Json(200, directory.toStyledString()));
    EXPECT_EQ(Ordered(R"({"profile": "short"})"), kPlainOrder) << profiles;
    EXPECT_THAT(syslog_.Texts(), ElementsAre("client_v2:# The CA has no profile [short]."));
  }
  for (const char* settings : {R"({"profile": 5})", R"({"profile": null})", R"({"profile": []})"}) {
    syslog_.Clear();
    EXPECT_EQ(Ordered(settings), kPlainOrder) << settings;
    EXPECT_THAT(syslog_.Texts(), IsEmpty()) << settings;
  }
}

TEST_F(Choices, OfTheCertificateAreKeptInItsRecord) {
  Ordered(R"({"preferredchain": "Root X"})");
  const std::string plain = client_->NewCertificate(order_, {});
  EXPECT_EQ(Parsed(ReadFile(plain + "/renew.json")).getMemberNames(),
            (std::vector<std::string>{"account", "domains", "server", "version"}));
  Ordered("{}");
  IssueOptions options;
  options.profile = "short";
  options.preferred_chain = "Root X";
  const Json::Value record =
      Parsed(ReadFile(client_->NewCertificate(order_, options) + "/renew.json"));
  EXPECT_EQ(record["profile"], "short");
  EXPECT_EQ(record["preferred_chain"], "Root X");
}

// A CA with two chains to its certificate.
class PreferredChain : public Choices {
 protected:
  static std::string ChainTo(const std::string& top) {
    CertificateWish root;
    root.common_name = top;
    root.is_authority = true;
    const MadeCertificate issuer = MakeCertificate(root);
    CertificateWish between;
    between.common_name = "between";
    between.is_authority = true;
    const MadeCertificate intermediate = MakeCertificate(between, &issuer);
    return PemOf(*MakeCertificate({}, &intermediate).certificate) +
           PemOf(*intermediate.certificate);
  }

  // The chain that is stored.
  std::string Stored(const std::string& settings, const std::string& chosen = {}) {
    Ordered(settings);
    ca_.Always(kCertificate,
               HttpReply::Text(200, usual_,
                               {"Link: <" + ca_.Url("/chain/1") + ">; rel=\"alternate\"",
                                "Link: <" + ca_.Url("/chain/2") + ">;rel=\"alternate\""}));
    ca_.ClearRequests();
    IssueOptions options;
    options.preferred_chain = chosen;
    return ReadFile(client_->NewCertificate(order_, options) + "/fullchain.pem");
  }

  void ServeAlternates() {
    ca_.Always("POST /chain/1", HttpReply::Text(200, other_));
    ca_.Always("POST /chain/2", HttpReply::Text(200, wanted_));
  }

  std::string usual_ = ChainTo("Root A");
  std::string other_ = ChainTo("Root B");
  std::string wanted_ = ChainTo("Root C");
};

TEST_F(PreferredChain, IsTheUsualOneWithoutAWish) {
  ServeAlternates();
  for (const char* settings : {"{}", R"({"preferredchain": 5})", R"({"preferredchain": ""})",
                               R"({"preferredchain": "Root A"})"}) {
    EXPECT_EQ(Stored(settings), usual_) << settings;
    EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kCertificate)) << settings;
  }
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(PreferredChain, IsTheFirstAlternateOfThatIssuer) {
  ServeAlternates();
  EXPECT_EQ(Stored(R"({"preferredchain": "Root C"})"), wanted_);
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kCertificate, "POST /chain/1", "POST /chain/2"));
  EXPECT_EQ(ca_.Signed("POST /chain/2").at(0).payload, "");
  EXPECT_EQ(Stored(R"({"preferredchain": "Root C"})", "Root B"), other_);
  EXPECT_THAT(ca_.Routes(), ElementsAre(kFinalize, kCertificate, "POST /chain/1"));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(PreferredChain, IsTheUsualOneWhenNoneIsOfThatIssuer) {
  ServeAlternates();
  EXPECT_EQ(Stored(R"({"preferredchain": "Root"})"), usual_);
  EXPECT_THAT(syslog_.Texts(), ElementsAre("client_v2:# No chain is issued by [Root], the usual "
                                           "one is taken."));
}

TEST_F(PreferredChain, PassesOverAlternatesThatCannotBeHad) {
  ServeAlternates();
  for (const HttpReply& reply : {HttpReply::Text(404, wanted_), HttpReply::Text(200, "<html>"),
                                 HttpReply::Text(200, ""), HttpReply::Drop()}) {
    ca_.Once("POST /chain/1", reply);
    Ordered(R"({"preferredchain": "Root C"})");
    client_->NewNonce();  // one for the alternate that brings none
    EXPECT_EQ(Stored(R"({"preferredchain": "Root C", "noncerefill": true})"), wanted_);
  }
}

TEST_F(PreferredChain, SaysWhichAlternateCouldNotBeDownloaded) {
  ServeAlternates();
  ca_.Once("POST /chain/1", HttpReply::Drop());
  OutputCapture output(1);
  (void)Stored(R"({"preferredchain": "Root C", "noncerefill": true})");
  EXPECT_THAT(output.Debug(),
              Contains("Failed to download the alternate chain " + ca_.Url("/chain/1")));
}

constexpr char kBindings[] = "/usr/kova/etc/letsencrypt/eab.json";

class Binding : public ClientTest {
 protected:
  // The payload of a registration.
  Json::Value Registered() {
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    client.SetupDirectory();
    ca_.ClearRequests();
    client.RegisterAccount("a@b.example");
    return Parsed(ca_.Signed("POST /new-account").at(0).payload);
  }

  void Write(const std::string& entry, mode_t mode = 0600) {
    WriteFile(kBindings, "{\"" + ca_.DirectoryUrl() + "\": " + entry + "}", mode);
  }
};

TEST_F(Binding, TiesTheNewKeyToTheCustomer) {
  Write(R"({"kid": "kid-1", "hmac_key": "c2VjcmV0"})");
  const Json::Value binding = Registered()["externalAccountBinding"];
  EXPECT_EQ(DecodeBase64Url(binding["protected"].asString()),
            R"({"alg":"HS256","kid":"kid-1","url":")" + ca_.Url("/new-account") + "\"}");
  EXPECT_EQ(DecodeBase64Url(binding["payload"].asString()),
            JsonToString(ca_.Signed("POST /new-account").at(0).header["jwk"]));
  EXPECT_EQ(binding["signature"].asString(),
            HmacSha256Base64Url(
                "secret", binding["protected"].asString() + "." + binding["payload"].asString()));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Binding, IsLeftOutWithoutAnEntry) {
  EXPECT_FALSE(Registered().isMember("externalAccountBinding"));
  WriteFile(kBindings, R"({"https://other.example/": {"kid": "k", "hmac_key": "c2VjcmV0"}})", 0600);
  EXPECT_FALSE(Registered().isMember("externalAccountBinding"));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Binding, IsLeftOutWhenOthersCanReadTheFile) {
  for (const mode_t mode : {0640U, 0604U, 0620U, 0601U}) {
    syslog_.Clear();
    Write(R"({"kid": "k", "hmac_key": "c2VjcmV0"})", mode);
    EXPECT_FALSE(Registered().isMember("externalAccountBinding")) << mode;
    EXPECT_THAT(syslog_.Texts(), ElementsAre(std::string("client_v2:# ") + kBindings +
                                             " is not used: others than root can get at it."));
  }
}

TEST_F(Binding, IsLeftOutWhenTheFileIsAnothers) {
  Write(R"({"kid": "k", "hmac_key": "c2VjcmV0"})");
  ASSERT_EQ(chown(kBindings, 4242, 0), 0);
  EXPECT_FALSE(Registered().isMember("externalAccountBinding"));
  EXPECT_EQ(syslog_.Texts().size(), 1U);
}

TEST_F(Binding, IsLeftOutWhenTheEntryCannotBeUsed) {
  for (const char* entry :
       {"5", "null", "[]", "{}", R"({"kid": "k"})", R"({"hmac_key": "c2VjcmV0"})",
        R"({"kid": 5, "hmac_key": "c2VjcmV0"})", R"({"kid": "k", "hmac_key": 5})",
        R"({"kid": "", "hmac_key": "c2VjcmV0"})", R"({"kid": "k", "hmac_key": ""})",
        R"({"kid": "k", "hmac_key": "c2V/"})"}) {
    syslog_.Clear();
    Write(entry);
    EXPECT_FALSE(Registered().isMember("externalAccountBinding")) << entry;
    EXPECT_THAT(syslog_.Texts(),
                ElementsAre(std::string("client_v2:# ") + kBindings +
                            " has no usable kid and hmac_key for " + ca_.DirectoryUrl() + "."));
  }
  for (const char* text : {"", "{", "[]", "5"}) {
    syslog_.Clear();
    WriteFile(kBindings, text, 0600);
    EXPECT_FALSE(Registered().isMember("externalAccountBinding")) << text;
    EXPECT_THAT(syslog_.Texts(), ElementsAre(std::string("client_v2:# ") + kBindings +
                                             " is not used: it is no JSON object."));
  }
}

}  // namespace
}  // namespace kova::test
