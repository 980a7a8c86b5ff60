#include <filesystem>

#include "client_fixture.h"

namespace kova::test {
namespace {

constexpr char kContact[] = "a@b.example";

class Account : public ClientTest {
 protected:
  Account() : client_(ca_.DirectoryUrl(), Settings::Read()) {
    client_.SetupDirectory();
    ca_.ClearRequests();
  }

  std::string Store() {
    return CreateAccountFolder("client_v2", AccountInfo(kContact), AccountKey());
  }

  // The one folder of the store.
  static std::string OnlyFolder() {
    const auto names = ListFolder(kAccountStore);
    EXPECT_EQ(names.size(), 1U);
    return names.empty() ? "" : std::string(kAccountStore) + "/" + names[0];
  }

  // How the client speaks for itself after that.
  Jws NextRequest() {
    client_.PostAsGet(ca_.Url("/x"));
    return ca_.Signed("POST /x").back();
  }

  AcmeV2Client client_;
};

TEST_F(Account, IsRegisteredWithANewKey) {
  client_.RegisterAccount(kContact);
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /new-account"));
  const Jws request = ca_.Signed()[0];
  EXPECT_EQ(request.payload,
            "{\"contact\":[\"mailto:a@b.example\"],\"termsOfServiceAgreed\":true}\n");
  EXPECT_EQ(request.header.getMemberNames(),
            (std::vector<std::string>{"alg", "jwk", "nonce", "url"}));
  EXPECT_EQ(request.header["jwk"].getMemberNames(), (std::vector<std::string>{"e", "kty", "n"}));
  EXPECT_TRUE(Verifies(request, request.header["jwk"]));
}

TEST_F(Account, IsStoredAfterItsRegistration) {
  client_.RegisterAccount(kContact);
  const std::string folder = OnlyFolder();
  EXPECT_EQ(Parsed(ReadFile(folder + "/info.json")), AccountInfo(kContact));
  const Json::Value key = Parsed(ReadFile(folder + "/private_key.json"));
  EXPECT_EQ(key.getMemberNames(),
            (std::vector<std::string>{"d", "dp", "dq", "e", "kty", "n", "p", "q", "qi"}));
  EXPECT_EQ(key["n"], ca_.Signed()[0].header["jwk"]["n"]);
  EXPECT_EQ(ModeOf(folder), 0700U);
  EXPECT_EQ(ModeOf(folder + "/info.json"), 0600U);
  EXPECT_EQ(ModeOf(folder + "/private_key.json"), 0600U);
}

TEST_F(Account, IsLoadedWithoutWhatAKilledRunLeftBesideIt) {
  const std::string folder = Store();
  const std::string left = std::string(kAccountStore) + "/abcdef";
  WriteFile(left + "/private_key.json", "{}");
  WriteFile(std::string(kAccountStore) + "/.abcdef.unfinished", "");
  client_.LoadAccount(folder);
  EXPECT_EQ(OnlyFolder(), folder);
}

TEST_F(Account, IsNamedByItsUrlFromThenOn) {
  client_.RegisterAccount(kContact);
  const Jws request = NextRequest();
  EXPECT_EQ(request.header["kid"].asString(), ca_.AccountUrl());
  EXPECT_FALSE(request.header.isMember("jwk"));
  EXPECT_TRUE(Verifies(request, ca_.Signed()[0].header["jwk"]));
}

TEST_F(Account, ShowsItsRegistrationAtLevelOne) {
  OutputCapture output(1);
  client_.RegisterAccount(kContact);
  EXPECT_THAT(output.Debug(), ElementsAre("Start new account for a@b.example",
                                          "Post JWS Request: " + ca_.Url("/new-account"),
                                          "Post Request: " + ca_.Url("/new-account"),
                                          "New account success of " + ca_.AccountUrl()));
}

struct Refusal {
  HttpReply reply;
  std::string error;
};

TEST_F(Account, IsNotStoredWhenTheCaRefusesIt) {
  const std::string location = "Location: " + ca_.AccountUrl();
  const Refusal refusals[] = {
      {ScriptedCa::Problem(400, "invalidContact", "no 100% match"), "105 client_v2: no 100% match"},
      {ScriptedCa::Problem(429, "rateLimited", "too many %s"), "103 client_v2: too many %s"},
      {HttpReply::Json(400, "{}"), "105 client_v2: "},
      {HttpReply::Json(429, R"({"detail": 5})"), "103 client_v2: "},
      {HttpReply::Json(429, "[]"), "103 client_v2: "},
      {HttpReply::Text(400, "<html>"), "200 client_network: body is not json."},
      {HttpReply::Text(429, "<html>"), "200 client_network: body is not json."},
      {HttpReply::Json(200, "{}", {location}), "200 client_v2: newAccount, unexpect httpcode"},
      {HttpReply::Json(403, "{}", {location}), "200 client_v2: newAccount, unexpect httpcode"},
      {HttpReply::Text(500, "<html>"), "200 client_v2: newAccount, unexpect httpcode"},
      {HttpReply::Json(201, "{}"), "200 client_v2: newAccount, unexpect content"},
      {HttpReply::Json(201, "{}", {"location: " + ca_.AccountUrl()}),
       "200 client_v2: newAccount, unexpect content"},
      {HttpReply::Drop(), "100 client_network: Server is not reachable."}};
  for (const Refusal& refusal : refusals) {
    client_.NewNonce();
    ca_.Once("POST /new-account", refusal.reply);
    EXPECT_EQ(ErrorOf([this] { client_.RegisterAccount(kContact); }), refusal.error);
    EXPECT_FALSE(Exists(kAccountStore)) << refusal.error;
  }
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Account, CutsALongRefusal) {
  ca_.Once("POST /new-account", ScriptedCa::Problem(400, "x", std::string(2000, 'd')));
  EXPECT_EQ(ErrorOf([this] { client_.RegisterAccount(kContact); }),
            "105 client_v2: " + std::string(511, 'd'));
}

TEST_F(Account, IsStoredUnderTheContactAsGiven) {
  client_.RegisterAccount("o'neil+\"x\"@b.example");
  EXPECT_EQ(Parsed(ReadFile(OnlyFolder() + "/info.json"))["contact"].asString(),
            "o'neil+\"x\"@b.example");
}

TEST_F(Account, IsRegisteredWhenNoneIsStored) {
  OutputCapture output(1);
  client_.SetupAccount(kContact);
  ASSERT_FALSE(output.Debug().empty());
  EXPECT_EQ(output.Debug()[0], "Not found registed account. do reg-new.");
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /new-account"));
  EXPECT_EQ(AcmeV2Client::FindAccount(ca_.DirectoryUrl(), kContact), OnlyFolder());
}

TEST_F(Account, IsRegisteredWhenTheStoredOneIsOfAnotherDirectory) {
  Json::Value info = AccountInfo(kContact);
  info["directory"] = "https://other.example/directory";
  CreateAccountFolder("client_v2", info, AccountKey());
  client_.SetupAccount(kContact);
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /new-account"));
  EXPECT_EQ(ListFolder(kAccountStore).size(), 2U);
}

TEST_F(Account, IsUsedAgainWhenItIsStored) {
  const std::string folder = Store();
  OutputCapture output(1);
  client_.SetupAccount(kContact);
  EXPECT_THAT(output.Debug(),
              ElementsAre("Found registed account. used old account. [" + folder + "]"));
  EXPECT_THAT(ca_.Routes(), IsEmpty());
  const Jws request = NextRequest();
  EXPECT_EQ(request.header["kid"].asString(), ca_.AccountUrl());
  EXPECT_TRUE(Verifies(request, AccountKey()));
}

TEST_F(Account, IsUsedAgainByTheRunAfterItsRegistration) {
  client_.SetupAccount(kContact);
  AcmeV2Client second(ca_.DirectoryUrl(), Settings::Read());
  second.SetupDirectory();
  second.SetupAccount(kContact);
  second.PostAsGet(ca_.Url("/x"));
  EXPECT_EQ(ca_.Count("POST /new-account"), 1U);
  EXPECT_TRUE(Verifies(ca_.Signed("POST /x")[0], ca_.Signed()[0].header["jwk"]));
}

TEST_F(Account, CannotBeLoadedWithoutAUsableRecord) {
  for (const char* info : {"", "{", "[]", "null", "5"}) {
    const std::string folder = Store();
    WriteFile(folder + "/info.json", info);
    EXPECT_EQ(ErrorOf([&] { client_.LoadAccount(folder); }),
              "201 client_v2: failed to load User Info: " + folder + "/info.json")
        << info;
  }
  EXPECT_EQ(ErrorOf([&] { client_.LoadAccount("/no/such/account"); }),
            "201 client_v2: failed to load User Info: /no/such/account/info.json");
  EXPECT_EQ(ErrorOf([&] { client_.LoadAccount(""); }),
            "201 client_v2: failed to load User Info: /info.json");
}

TEST_F(Account, CannotBeLoadedWithoutAUsableKey) {
  for (const char* key : {"", "{", "[]", "null", "\"RSA\""}) {
    const std::string folder = Store();
    WriteFile(folder + "/private_key.json", key);
    EXPECT_EQ(ErrorOf([&] { client_.LoadAccount(folder); }),
              "201 client_v2: failed to load User Account key: " + folder + "/private_key.json")
        << key;
  }
  const std::string folder = Store();
  std::filesystem::remove(folder + "/private_key.json");
  EXPECT_EQ(ErrorOf([&] { client_.LoadAccount(folder); }),
            "201 client_v2: failed to load User Account key: " + folder + "/private_key.json");
}

TEST_F(Account, ThatCouldNotBeLoadedIsNotUsedHalf) {
  const std::string folder = Store();
  WriteFile(folder + "/private_key.json", "{");
  ErrorOf([&] { client_.LoadAccount(folder); });
  EXPECT_EQ(ErrorOf([&] { client_.PostAsGet(ca_.Url("/x")); }),
            "201 client_v2: RSA Key not found.");
}

}  // namespace
}  // namespace kova::test
