#include <curl/curl.h>

#include "client_fixture.h"

namespace {

int library_uses = 0;  // of libcurl, begun and not yet ended

}  // namespace

extern "C" {
CURLcode __real_curl_global_init(long flags);   // NOLINT
CURLcode __wrap_curl_global_init(long flags) {  // NOLINT
  ++library_uses;
  return __real_curl_global_init(flags);
}
void __real_curl_global_cleanup(void);   // NOLINT
void __wrap_curl_global_cleanup(void) {  // NOLINT
  --library_uses;
  __real_curl_global_cleanup();
}
}

namespace kova::test {
namespace {

using Directory = ClientTest;

TEST_F(Directory, IsFetchedOnce) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  OutputCapture output(1);
  client.SetupDirectory();
  EXPECT_THAT(output.Debug(), ElementsAre("setup acme url " + ca_.DirectoryUrl(),
                                          "GET Request: " + ca_.DirectoryUrl()));
  EXPECT_THAT(ca_.Routes(), ElementsAre("GET /directory"));
}

TEST_F(Directory, IsAskedByAClientThatHoldsTheLibrary) {
  const int before = library_uses;
  {
    const AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    EXPECT_EQ(library_uses, before + 1);
  }
  EXPECT_EQ(library_uses, before);
}

TEST_F(Directory, GivesANonceWhenItsReplyCarriesOne) {
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  EXPECT_EQ(client.TakeNonce(), "nonce-1");
  EXPECT_EQ(ErrorOf([&] { client.TakeNonce(); }), "204 client_v2: No Nonce.... Not Yet implement");
}

TEST_F(Directory, IsRefusedOnAnyOtherStatusThan200) {
  for (const int status : {201, 204, 400, 403, 404, 429, 500, 503}) {
    ca_.Once("GET /directory", HttpReply::Json(status, ca_.Directory()));
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    EXPECT_EQ(ErrorOf([&] { client.SetupDirectory(); }),
              "200 client_v2: Failed to init directory map")
        << status;
    EXPECT_EQ(ErrorOf([&] { client.TakeNonce(); }),
              "204 client_v2: No Nonce.... Not Yet implement");
  }
}

TEST_F(Directory, IsRefusedWithoutOneOfItsFourMembers) {
  for (const char* member : {"newOrder", "newAccount", "newNonce", "revokeCert"}) {
    Json::Value directory = Parsed(ca_.Directory());
    directory.removeMember(member);
    ca_.Once("GET /directory", HttpReply::Json(200, directory.toStyledString()));
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    EXPECT_EQ(ErrorOf([&] { client.SetupDirectory(); }), "200 client_v2: Directory Member missing.")
        << member;
    EXPECT_EQ(client.TakeNonce(), "nonce-" + std::to_string(ca_.Routes().size()));
  }
}

TEST_F(Directory, IsRefusedWhenAMemberIsNoText) {
  for (const char* value : {"null", "5", "{}", "[\"http://x\"]", "true"}) {
    Json::Value directory = Parsed(ca_.Directory());
    directory["newOrder"] = Parsed(value);
    ca_.Once("GET /directory", HttpReply::Json(200, directory.toStyledString()));
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    EXPECT_EQ(ErrorOf([&] { client.SetupDirectory(); }), "200 client_v2: Directory Member missing.")
        << value;
  }
}

TEST_F(Directory, IsRefusedWhenItIsNoObject) {
  for (const char* body : {"[]", "null", "17", "\"newOrder\"", "[[[[]]]]", "true"}) {
    ca_.Once("GET /directory", HttpReply::Json(200, body));
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    EXPECT_EQ(ErrorOf([&] { client.SetupDirectory(); }), "200 client_v2: Directory Member missing.")
        << body;
  }
}

TEST_F(Directory, IsRefusedWhenItIsNotJson) {
  for (const std::string& body : {std::string(), std::string("<html></html>"),
                                  ca_.Directory().substr(0, 20), std::string(100000, '[')}) {
    ca_.Once("GET /directory", HttpReply::Text(200, body));
    AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
    EXPECT_EQ(ErrorOf([&] { client.SetupDirectory(); }), "200 client_network: body is not json.");
  }
}

TEST_F(Directory, ThatCannotBeReachedIsATransferFailure) {
  ca_.Once("GET /directory", HttpReply::Drop());
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  EXPECT_EQ(ErrorOf([&] { client.SetupDirectory(); }),
            "100 client_network: Server is not reachable.");
  for (const char* url : {"", "http://", "file:///etc/passwd", "no url", "http://127.0.0.1:1/d"}) {
    AcmeV2Client other(url, Settings::Read());
    EXPECT_EQ(ErrorOf([&] { other.SetupDirectory(); }),
              "100 client_network: Server is not reachable.")
        << url;
  }
}

TEST_F(Directory, IsFollowedWhereItMoved) {
  ca_.Once("GET /directory", HttpReply::Redirect(301, ca_.Url("/moved")));
  ca_.Once("GET /moved", HttpReply::Json(200, ca_.Directory()));
  AcmeV2Client client(ca_.DirectoryUrl(), Settings::Read());
  client.SetupDirectory();
  EXPECT_THAT(ca_.Routes(), ElementsAre("GET /directory", "GET /moved"));
}

using ChallengeTypes = ClientTest;

// How many types there are at first, and what the constructor has to say at level 1.
std::pair<size_t, std::vector<std::string>> TypesWith(const char* settings) {
  if (settings != nullptr) WriteFile(kSettingsFile, settings);
  OutputCapture output(1);
  const AcmeV2Client client("http://127.0.0.1/", Settings::Read());
  EXPECT_TRUE(client.HasChallengeTypes());
  return {client.ChallengeTypes().size(), output.Debug()};
}

TEST_F(ChallengeTypes, AreTwoUnlessTheSettingsSwitchDns01Off) {
  using Result = std::pair<size_t, std::vector<std::string>>;
  EXPECT_EQ(TypesWith(R"({"skipdns01": true})"), Result(1, {"Skip dns challenge is enabled"}));
  for (const char* settings :
       {"{}", R"({"skipdns01": false})", R"({"skipdns01": 1})", R"({"skipdns01": "true"})",
        R"({"skipdns01": null})", R"({"skipdns01": [true]})"}) {
    EXPECT_EQ(TypesWith(settings), Result(2, {})) << settings;
  }
}

TEST_F(ChallengeTypes, AreTwoWithoutUsableSettings) {
  using Result = std::pair<size_t, std::vector<std::string>>;
  const std::string failed = std::string("Failed to read from ") + kSettingsFile;
  for (const char* settings : {"", "{", "[]", "null", "5", "[1e999999"}) {
    EXPECT_EQ(TypesWith(settings), Result(2, {failed + " [0]"})) << settings;
  }
  ResetHost();
  EXPECT_EQ(TypesWith(nullptr), Result(2, {failed + " [2]"}));
}

}  // namespace
}  // namespace kova::test
