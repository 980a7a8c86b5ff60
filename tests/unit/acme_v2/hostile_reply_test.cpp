// Whatever a server answers, wherever in an issuance, the client ends with an error or goes on: it
// does not crash, and what it leaves behind is nothing or a whole certificate.
#include <regex>

#include "client_fixture.h"

namespace kova::test {
namespace {

struct Hostility {
  const char* name;
  HttpReply reply;
};

std::string Deep(size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

std::vector<Hostility> Hostilities() {
  const std::string huge(10 << 20, 'x');
  std::vector<Hostility> all;
  for (const int status : {200, 201, 400, 500}) {
    all.push_back({"NestedTooDeeply", HttpReply::Json(status, std::string(100000, '['))});
    all.push_back({"NestedDeeply", HttpReply::Json(status, Deep(900))});
    all.push_back({"HugeText", HttpReply::Text(status, huge)});
    all.push_back({"HugeDetail", HttpReply::Json(status, R"({"detail": ")" + huge + "\"}")});
    all.push_back({"Html", HttpReply::Text(status, "<html><body>Bad gateway</body></html>")});
    all.push_back({"Empty", HttpReply::Text(status, "")});
    all.push_back({"Null", HttpReply::Json(status, "null")});
    all.push_back({"Array", HttpReply::Json(status, R"([{"status": "valid"}])")});
    all.push_back({"Number", HttpReply::Json(status, "-1e308")});
    all.push_back({"Text", HttpReply::Json(status, "\"%s%n\"")});
    all.push_back({"EmptyObject", HttpReply::Json(status, "{}")});
    all.push_back({"Cut", HttpReply::Json(status, R"({"status": "val)")});
    all.push_back({"Nul", HttpReply::Json(status, std::string("{\"a\0\": \"\0\"}", 12))});
    all.push_back({"BadUtf8", HttpReply::Json(status, "{\"detail\": \"\xff\xfe\xc0\x80\"}")});
    all.push_back({"Formats", HttpReply::Json(status, R"({"type": "%n%s", "detail": "%n%s%s"})")});
  }
  all.push_back({"Dropped", HttpReply::Drop()});
  all.push_back({"NoHttp", HttpReply::Raw("SSH-2.0-OpenSSH\r\n")});
  all.push_back({"OnlyAStatusLine", HttpReply::Raw("HTTP/1.1 200 OK\r\n\r\n")});
  all.push_back({"CutBody", HttpReply::CutShort(R"({"status": "valid"})", 5)});
  all.push_back({"Loop", HttpReply::Redirect(302, "/directory")});
  return all;
}

class HostileReply : public ClientTest, public ::testing::WithParamInterface<const char*> {
 protected:
  // A whole run with a new account.
  std::string Run() {
    return ErrorOf([this] {
      AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
      client.SetupDirectory();
      client.NewNonce();
      client.SetupAccount("a@b.example");
      const Order order = client.NewOrder({"a.example"});
      client.AuthorizeOrder(order);
      client.NewCertificate(order, {});
    });
  }
};

TEST_P(HostileReply, EndsInAnErrorOrIsOfNoConsequence) {
  static const std::regex kExpected(
      "(nothing|(10[0-5]|20[0-5]) (client_v2|client_network|utils|rsa): [^]{0,511})");
  for (const Hostility& hostility : Hostilities()) {
    ResetHost();
    WriteFile(kSettingsFile, R"({"skipdns01": true, "asyncfinalize": true})");
    ca_.Once(GetParam(), hostility.reply);
    const std::string result = Run();
    EXPECT_TRUE(std::regex_match(result, kExpected))
        << hostility.name << " " << hostility.reply.status << ": " << result.substr(0, 600);
    EXPECT_EQ(ListFolder(kArchive).size(), result == "nothing" ? 2U : 0U)  // with its mark
        << hostility.name << ": " << result.substr(0, 600);
    EXPECT_THAT(ListFolder(kTokenFolder), IsEmpty()) << hostility.name;
    ca_.Reset();
  }
}

INSTANTIATE_TEST_SUITE_P(Requests, HostileReply,
                         ::testing::Values("GET /directory", "GET /new-nonce", "POST /new-account",
                                           "POST /new-order", "POST /authz/0",
                                           "POST /challenge/0/http-01", "POST /order/1/finalize",
                                           "POST /certificate/1"),
                         [](const auto& information) {
                           std::string name;
                           for (const char* c = information.param; *c != '\0'; ++c) {
                             if (std::isalnum(static_cast<unsigned char>(*c)) != 0) name += *c;
                           }
                           return name;
                         });

}  // namespace
}  // namespace kova::test
