// Each optional key of the settings: a whole issuance with it absent and of the wrong type is the
// same, byte for byte; with it on only what it names differs.
#include "client_fixture.h"

namespace kova::test {
namespace {

class InertSettings : public ClientTest {
 protected:
  // All that the CA is sent for an account, a certificate and its revocation. Keys of
  // certificates, signatures and nonces differ from run to run and are left out.
  std::vector<std::string> RunWith(const std::string& more) {
    ResetHost();
    ca_.Reset();
    WriteFile(kSettingsFile, R"({"skipdns01": true)" + more + "}");
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    client.SetupDirectory();
    client.NewNonce();
    client.LoadAccount(CreateAccountFolder("client_v2", AccountInfo(), AccountKey()));
    const Order order = client.NewOrder({"a.example", "b.example"});
    client.AuthorizeOrder(order);
    client.RevokeCertificate(client.NewCertificate(order, {}));
    return Seen();
  }

  std::vector<std::string> Seen() const {
    std::vector<std::string> seen;
    const std::vector<std::string> routes = ca_.Routes();
    const std::vector<Jws> requests = ca_.Signed();
    size_t next = 0;
    for (const std::string& route : routes) {
      if (!route.starts_with("POST ")) {
        seen.push_back(route);
        continue;
      }
      Jws request = requests.at(next++);
      seen.push_back(route + " " + WithoutNonce(request.header_text) + " " + Bare(request.payload));
    }
    return seen;
  }

  // Nonces count on from run to run.
  static std::string WithoutNonce(std::string header) {
    const size_t begin = header.find("nonce-");
    return header.replace(begin, header.find('"', begin) - begin, "N");
  }

  // A request for a certificate is told by its length and its last signs: its key is one of a few.
  static std::string Bare(const std::string& payload) {
    if (payload.find("{\"csr\":") != 0) return payload;
    return "csr of " + std::to_string(payload.size()) + payload.substr(payload.size() - 4);
  }
};

TEST_F(InertSettings, ChangeNothingWhenTheyAreOfAnotherType) {
  const std::vector<std::string> plain = RunWith("");
  ASSERT_GT(plain.size(), 10U);
  for (const char* key :
       {"asyncfinalize", "noncerefill", "strictencoding", "checkissued", "stagedupdate", "profile",
        "preferredchain", "keepconnections", "transfertimeout", "quickvalidation"}) {
    for (const char* value : {"null", "\"\"", "[]", "{}", "1.5", "[true]"}) {
      EXPECT_EQ(RunWith(std::string(", \"") + key + "\": " + value), plain) << key << value;
    }
  }
}

TEST_F(InertSettings, ChangeWhatTheyNameAlone) {
  const std::vector<std::string> plain = RunWith("");
  for (const char* more :
       {R"(, "asyncfinalize": true)", R"(, "noncerefill": true)", R"(, "keepconnections": true)",
        R"(, "transfertimeout": 60)", R"(, "preferredchain": "x")", R"(, "profile": "x")",
        R"(, "stagedupdate": true)", R"(, "quickvalidation": true)"}) {
    EXPECT_EQ(RunWith(more), plain) << more;
  }
  std::vector<std::string> strict = RunWith(R"(, "strictencoding": true)");
  ASSERT_EQ(strict.size(), plain.size());
  EXPECT_NE(strict, plain);
  for (size_t index = 0; index < plain.size(); ++index) {
    EXPECT_EQ(strict[index].find('\n'), std::string::npos) << strict[index];
  }
}

}  // namespace
}  // namespace kova::test
