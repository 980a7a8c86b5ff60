#include <glob.h>
#include <gmock/gmock.h>

#include <filesystem>
#include <ostream>

#include "../crypto/known_keys.h"
#include "acme_v2/client_v2.h"
#include "base/json.h"
#include "failing_glob.h"
#include "syslog_capture.h"
#include "v1_fixture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AccountV1Test : public V1Test {
 protected:
  std::string Find() { return AcmeV1Client::FindAccount(server.Url("/directory"), kContact); }

  // The registration's reply, complete, and the agreement's.
  void ServeRegistration() {
    server.On("POST /new-reg", FreshJson(201, "{}", {Location(), Terms()}));
    server.On("POST /reg/1", FreshJson(202, "{}"));
  }
  std::string Location() const { return "Location: " + server.Url("/reg/1"); }
  static std::string Terms() { return R"(Link: <http://ca.example/terms>;rel="terms-of-service")"; }

  std::string RegisterError() {
    return ErrorOf([&] { client.Register(kContact); });
  }
};

// --- Finding ---

TEST_F(AccountV1Test, FindsNothingInAnEmptyOrMissingStore) {
  EXPECT_EQ(Find(), "");
  std::filesystem::create_directories(kAccountStore);
  EXPECT_EQ(Find(), "");
}

TEST_F(AccountV1Test, FindsTheAccountOfTheDirectoryAndContact) {
  Json::Value other = AccountInfo();
  other["contact"] = "you@mail.example";
  StoreAccount("a", other);
  other = AccountInfo();
  other["directory"] = "http://other.example/directory";
  StoreAccount("b", other);
  const std::string folder = StoreAccount("c", AccountInfo());
  EXPECT_EQ(Find(), folder + "/");
}

TEST_F(AccountV1Test, TakesTheFirstOfSeveralInNameOrder) {
  StoreAccount("b", AccountInfo());
  const std::string first = StoreAccount("a", AccountInfo());
  EXPECT_EQ(Find(), first + "/");
}

TEST_F(AccountV1Test, NeverChoosesAnAccountOfAnotherVersion) {
  StoreAccount("a", AccountInfo(2));
  Json::Value text = AccountInfo();
  text["version"] = "1";
  StoreAccount("b", text);
  Json::Value truth = AccountInfo();
  truth["version"] = true;
  StoreAccount("c", truth);
  Json::Value fraction = AccountInfo();
  fraction["version"] = 1.5;
  StoreAccount("d", fraction);
  Json::Value none = AccountInfo();
  none.removeMember("version");
  StoreAccount("e", none);
  EXPECT_EQ(Find(), "");
}

TEST_F(AccountV1Test, ComparesContactAndDirectoryExactly) {
  Json::Value info = AccountInfo();
  info["contact"] = "ME@mail.example";
  StoreAccount("a", info);
  info = AccountInfo();
  info["directory"] = server.Url("/directory") + "/";
  StoreAccount("b", info);
  info = AccountInfo();
  info["contact"] = Json::Value(Json::arrayValue);
  StoreAccount("c", info);
  EXPECT_EQ(Find(), "");
}

TEST_F(AccountV1Test, PassesOverAnAccountWithoutAReadableKey) {
  const std::string without = StoreAccount("a", AccountInfo());
  std::filesystem::remove(without + "/private_key.json");
  WriteFile(StoreAccount("b", AccountInfo()) + "/private_key.json", "no JSON");
  WriteFile(StoreAccount("c", AccountInfo()) + "/private_key.json", "[]");
  EXPECT_EQ(Find(), "");
  const std::string good = StoreAccount("d", AccountInfo());
  EXPECT_EQ(Find(), good + "/");
}

TEST_F(AccountV1Test, PassesOverWhatIsNoAccount) {
  WriteFile(std::string(kAccountStore) + "/file", "x");
  WriteFile(std::string(kAccountStore) + "/list/info.json", "[1, 2]");
  WriteFile(std::string(kAccountStore) + "/null/info.json", "null");
  WriteFile(std::string(kAccountStore) + "/cut/info.json", R"({"contact": )");
  std::filesystem::create_directories(std::string(kAccountStore) + "/void");
  EXPECT_EQ(Find(), "");
}

TEST_F(AccountV1Test, LivesBesideTheAccountsOfTheOtherVersion) {
  Json::Value newer = AccountInfo(2);
  newer["account_url"] = "http://ca.example/acct/1";
  const std::string v2 = StoreAccount("a", newer);
  const std::string v1 = StoreAccount("b", AccountInfo());
  EXPECT_EQ(Find(), v1 + "/");
  EXPECT_EQ(Account::Find(server.Url("/directory"), kContact), v2);
}

TEST_F(AccountV1Test, CannotFindAnythingInAStoreThatCannotBeListed) {
  forced_glob_result = GLOB_NOSPACE;
  EXPECT_EQ(ErrorOf([&] { Find(); }), "text: glob error");
  forced_glob_result = 0;
}

// --- Loading ---

TEST_F(AccountV1Test, LoadsTheKeyOfAFolder) {
  ServeDirectory();
  client.FetchDirectory();
  client.LoadAccountKey(StoreAccount("a", AccountInfo()));
  server.On("POST /x", HttpReply::Json(200, "{}"));
  client.PostJws(server.Url("/x"), Json::Value(Json::objectValue));
  EXPECT_EQ(Posts("POST /x").at(0).document["header"]["jwk"]["n"], kRfc7515Modulus);
}

TEST_F(AccountV1Test, RefusesAFolderWithoutAReadableKey) {
  const std::string folder = StoreAccount("a", AccountInfo());
  for (const char* content : {"", "no JSON", "[]", "null"}) {
    WriteFile(folder + "/private_key.json", content);
    EXPECT_EQ(ErrorOf([&] { client.LoadAccountKey(folder); }),
              "201 client_v1: failed to load User Account key: " + folder + "/private_key.json");
  }
  EXPECT_EQ(ErrorOf([&] { client.LoadAccountKey("/nowhere"); }),
            "201 client_v1: failed to load User Account key: /nowhere/private_key.json");
}

TEST_F(AccountV1Test, AKeyThatCannotSignShowsWhenItIsUsed) {
  ServeDirectory();
  client.FetchDirectory();
  const std::string folder = StoreAccount("a", AccountInfo());
  WriteFile(folder + "/private_key.json", R"({"n": 5, "e": [], "d": "AQAB"})");
  client.LoadAccountKey(folder);
  EXPECT_EQ(ErrorOf([&] { client.PostJws(server.Url("/x"), Json::Value()); }),
            "201 rsa: RSA: key sing failed.");
}

// --- Registering ---

TEST_F(AccountV1Test, RegistersAndAgreesToTheTerms) {
  ServeDirectory();
  ServeRegistration();
  client.FetchDirectory();
  client.Register(kContact);

  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory", "POST /new-reg", "POST /reg/1"));
  const SignedBody registration = Posts("POST /new-reg").at(0);
  EXPECT_EQ(registration.payload_text,
            "{\"contact\":[\"mailto:me@mail.example\"],\"resource\":\"new-reg\"}\n");
  const SignedBody agreement = Posts("POST /reg/1").at(0);
  EXPECT_EQ(agreement.payload_text,
            "{\"agreement\":\"http://ca.example/terms\",\"contact\":[\"mailto:me@mail.example\"],"
            "\"resource\":\"reg\"}\n");
  EXPECT_EQ(registration.document["header"], agreement.document["header"]);
}

TEST_F(AccountV1Test, StoresTheAccount) {
  ServeDirectory();
  ServeRegistration();
  client.FetchDirectory();
  client.Register(kContact);

  EXPECT_EQ(ModeOf("/usr/kova/etc/letsencrypt"), 0700);
  EXPECT_EQ(ModeOf(kAccountStore), 0700);
  const std::vector<std::string> names = ListFolder(kAccountStore);
  ASSERT_EQ(names.size(), 1U);
  EXPECT_THAT(names[0], testing::MatchesRegex("[A-Za-z0-9]{6}"));
  const std::string folder = std::string(kAccountStore) + "/" + names[0];
  EXPECT_EQ(ModeOf(folder), 0700);
  EXPECT_THAT(ListFolder(folder), ElementsAre("info.json", "private_key.json"));
  EXPECT_EQ(ModeOf(folder + "/info.json"), 0600);
  EXPECT_EQ(ModeOf(folder + "/private_key.json"), 0600);
  EXPECT_EQ(ReadFile(folder + "/info.json"),
            "{\n   \"contact\" : \"me@mail.example\",\n   \"directory\" : \"" +
                server.Url("/directory") + "\",\n   \"version\" : 1\n}\n");
  // The key that was registered is the one that is kept.
  Json::Value key;
  ASSERT_TRUE(JsonFromFile(folder + "/private_key.json", key));
  EXPECT_THAT(key.getMemberNames(), ElementsAre("d", "dp", "dq", "e", "kty", "n", "p", "q", "qi"));
  EXPECT_EQ(key["n"], Posts("POST /new-reg").at(0).document["header"]["jwk"]["n"]);
  EXPECT_EQ(Find(), folder + "/");
}

TEST_F(AccountV1Test, MakesANewKeyForEachRegistration) {
  ServeDirectory();
  ServeRegistration();
  client.FetchDirectory();
  client.Register(kContact);
  client.Register(kContact);
  const std::vector<SignedBody> posts = Posts("POST /new-reg");
  EXPECT_NE(posts.at(0).document["header"]["jwk"]["n"], posts.at(1).document["header"]["jwk"]["n"]);
  EXPECT_EQ(ListFolder(kAccountStore).size(), 2U);
}

TEST_F(AccountV1Test, AddsToAStoreThatIsThere) {
  StoreAccount("a", AccountInfo(2));
  ServeDirectory();
  ServeRegistration();
  client.FetchDirectory();
  client.Register(kContact);
  EXPECT_EQ(ListFolder(kAccountStore).size(), 2U);
}

struct Refusal {
  int status;
  const char* body;
  const char* error;
};

void PrintTo(const Refusal& refusal, std::ostream* output) {
  *output << refusal.status << " " << refusal.body;
}

class AccountV1RefusalTest : public AccountV1Test, public testing::WithParamInterface<Refusal> {};

TEST_P(AccountV1RefusalTest, LeavesNoFolder) {
  ServeDirectory();
  client.FetchDirectory();
  server.On("POST /new-reg", FreshJson(GetParam().status, GetParam().body, {Location(), Terms()}));
  EXPECT_EQ(RegisterError(), GetParam().error);
  EXPECT_THAT(ListFolder("/usr/kova/etc/letsencrypt"), IsEmpty());
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory", "POST /new-reg"));
}

constexpr char kWrongStatus[] = "200 client_v1: new-req, unexpect httpcode";
constexpr char kNotJson[] = "200 client_network: body is not json.";

INSTANTIATE_TEST_SUITE_P(
    Statuses, AccountV1RefusalTest,
    testing::Values(Refusal{429, R"({"detail": "Too many of %s and %n"})",
                            "103 client_v1: Too many of %s and %n"},
                    Refusal{400, R"({"detail": "No %d such mail"})",
                            "105 client_v1: No %d such mail"},
                    Refusal{429, "[]", "103 client_v1: "},
                    Refusal{400, R"({"detail": {"a": 1}})", "105 client_v1: "},
                    Refusal{429, "<html>", kNotJson}, Refusal{400, "", kNotJson},
                    Refusal{200, "{}", kWrongStatus}, Refusal{202, "{}", kWrongStatus},
                    Refusal{403, R"({"detail": "no"})", kWrongStatus},
                    Refusal{409, "{}", kWrongStatus}, Refusal{500, "<html>", kWrongStatus}));

TEST_F(AccountV1Test, NeedsTheTermsAndTheLocation) {
  const std::string blank = R"(Link: <http://ca.example/terms>; rel="terms-of-service")";
  const std::vector<std::vector<std::string>> headers = {
      {},
      {Location()},
      {Terms()},
      {Location(), blank},
      {"location: /reg/1", Terms()},
      {Location(), R"(Link: <http://ca.example/next>;rel="next")"}};
  for (const auto& sent : headers) {
    ServeDirectory();
    client.FetchDirectory();
    server.Reset("POST /new-reg");
    server.On("POST /new-reg", FreshJson(201, "{}", sent));
    EXPECT_EQ(RegisterError(), "200 client_v1: new-req, unexpect content");
  }
  EXPECT_THAT(Posts("POST /reg/1"), IsEmpty());
  EXPECT_THAT(ListFolder(kAccountStore), IsEmpty());
}

TEST_F(AccountV1Test, FindsTheTermsAmongSeveralLinks) {
  ServeDirectory();
  client.FetchDirectory();
  server.On(
      "POST /new-reg",
      FreshJson(201, "not read", {R"(Link: <http://n.example/>;rel="next")", Terms(), Location()}));
  server.On("POST /reg/1", FreshJson(202, "not read"));
  EXPECT_EQ(RegisterError(), "nothing");
}

TEST_F(AccountV1Test, NeedsTheAgreementToBeAccepted) {
  for (const int status : {200, 201, 400, 403, 500}) {
    ServeDirectory();
    client.FetchDirectory();
    server.Reset("POST /reg/1");
    server.On("POST /new-reg", FreshJson(201, "{}", {Location(), Terms()}));
    server.On("POST /reg/1", FreshJson(status, R"({"detail": "x"})"));
    EXPECT_EQ(RegisterError(), "200 client_v1: req, unexpect httpcode") << status;
  }
  EXPECT_THAT(ListFolder(kAccountStore), IsEmpty());
}

TEST_F(AccountV1Test, DoesNotRepeatARegistrationWhoseNonceWasRefused) {
  ServeDirectory();
  client.FetchDirectory();
  server.On("POST /new-reg",
            FreshJson(400, R"({"type": "urn:acme:error:badNonce", "detail": "bad nonce"})"));
  EXPECT_EQ(RegisterError(), "105 client_v1: bad nonce");
  EXPECT_EQ(Posts("POST /new-reg").size(), 1U);
}

TEST_F(AccountV1Test, ReportsAStoreThatCannotBeMade) {
  const auto failure = [&] {
    SyslogCapture syslog;
    ServeDirectory();
    server.Reset("POST /new-reg");
    server.Reset("POST /reg/1");
    ServeRegistration();
    client.FetchDirectory();
    const std::string error = RegisterError();
    return std::pair{error, syslog.Texts()};
  };
  WriteFile("/usr/kova/etc/letsencrypt", "a file");
  auto [error, texts] = failure();
  EXPECT_EQ(error, "202 client_v1: Failed to create folder for account.");
  EXPECT_THAT(texts, ElementsAre("client_v1:# Failed to create folder for account. [20]"));

  std::filesystem::remove("/usr/kova/etc/letsencrypt");
  WriteFile(kAccountStore, "a file");
  std::tie(error, texts) = failure();
  EXPECT_EQ(error, "202 client_v1: Failed to create folder for account item.");
  EXPECT_THAT(texts, ElementsAre("client_v1:# Failed to create folder for account item. [20]"));

  std::filesystem::rename("/usr/kova/etc", "/usr/kova/etc.away");
  std::tie(error, texts) = failure();
  std::filesystem::rename("/usr/kova/etc.away", "/usr/kova/etc");
  EXPECT_EQ(error, "202 client_v1: Failed to create folder for let's encrypt.");
  EXPECT_THAT(texts,
              testing::Contains("client_v1:# Failed to create folder for let's encrypt. [2]"));
}

// --- Using or registering ---

TEST_F(AccountV1Test, UsesTheStoredAccount) {
  ServeDirectory();
  client.FetchDirectory();
  const std::string folder = StoreAccount("a", AccountInfo());
  EXPECT_THAT(StepsOf([&] { client.UseOrRegister(kContact); }),
              ElementsAre("Found registed account. used old account. [" + folder + "/]"));
  EXPECT_THAT(server.Routes(), ElementsAre("GET /directory"));
}

TEST_F(AccountV1Test, RegistersWhenNoneIsStored) {
  StoreAccount("a", AccountInfo(2));
  ServeDirectory();
  ServeRegistration();
  client.FetchDirectory();
  EXPECT_THAT(StepsOf([&] { client.UseOrRegister(kContact); }),
              ElementsAre("Not found registed account. do reg-new.",
                          "Post JWS Request: " + server.Url("/new-reg"),
                          "Post JWS Request: " + server.Url("/reg/1")));
  // Another client finds it.
  AcmeV1Client second(server.Url("/directory"), Settings());
  server.ClearRequests();
  second.UseOrRegister(kContact);
  EXPECT_THAT(server.Requests(), IsEmpty());
}

}  // namespace
}  // namespace kova::test
