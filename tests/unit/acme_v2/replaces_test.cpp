// The certificate that an order replaces.
#include "client_fixture.h"

namespace kova::test {
namespace {

constexpr char kNewOrder[] = "POST /new-order";
constexpr char kPlain[] = "{\"identifiers\":[{\"type\":\"dns\",\"value\":\"a.example\"}]}\n";
constexpr char kReplacing[] =
    "{\"identifiers\":[{\"type\":\"dns\",\"value\":\"a.example\"}],\"replaces\":\"key.1\"}\n";

class Replaces : public ClientTest {
 protected:
  Replaces() {
    ca_.GiveRenewalInfo(HttpReply::Text(404, ""));
    client_ = ReadyClient();
    client_->NewNonce();
  }

  std::string Place(const std::string& replaces = "key.1") {
    ca_.ClearRequests();
    return ErrorOf([&] { (void)client_->NewOrder({"a.example"}, {}, replaces); });
  }

  // The payloads of the orders.
  [[nodiscard]] std::vector<std::string> Placed() const {
    std::vector<std::string> payloads;
    for (const Jws& request : ca_.Signed(kNewOrder)) payloads.push_back(request.payload);
    return payloads;
  }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST_F(Replaces, TheOrderNamesIt) {
  EXPECT_EQ(Place(), "nothing");
  EXPECT_THAT(Placed(), ElementsAre(kReplacing));
  EXPECT_EQ(Place(""), "nothing");
  EXPECT_THAT(Placed(), ElementsAre(kPlain));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Replaces, NothingAtACaWithoutRenewalInformation) {
  for (const char* more :
       {"", R"(, "renewalInfo": 5)", R"(, "renewalInfo": "")", R"(, "renewalInfo": {})"}) {
    std::string directory = R"({"newNonce": "n", "newAccount": "a", "revokeCert": "r",
                                "newOrder": ")" +
                            ca_.Url("/new-order") + "\"" + more + "}";
    ca_.Once("GET /directory", HttpReply::Json(200, directory));
    client_ = ReadyClient();
    EXPECT_EQ(Place(), "nothing") << more;
    EXPECT_THAT(Placed(), ElementsAre(kPlain)) << more;
  }
}

TEST_F(Replaces, IsLeftOutOnceTheCaRefusesItForThat) {
  const std::pair<int, HttpReply> refusals[] = {
      {409, ScriptedCa::Problem(409, "alreadyReplaced", "it is")},
      {409, HttpReply::Text(409, "<html>")},
      {400, ScriptedCa::Problem(400, "alreadyReplaced", "it is")},
      {400, ScriptedCa::Problem(400, "malformed", "no such identifier")},
      {403, ScriptedCa::Problem(403, "unauthorized", "another account's")},
      {404, ScriptedCa::Problem(404, "malformed", "no such certificate")}};
  for (const auto& [status, refusal] : refusals) {
    syslog_.Clear();
    ca_.Once(kNewOrder, refusal);
    EXPECT_EQ(Place(), "nothing") << refusal.body;
    EXPECT_THAT(Placed(), ElementsAre(kReplacing, kPlain)) << refusal.body;
    EXPECT_THAT(syslog_.Texts(),
                ElementsAre("client_v2:# The CA refused the order as a replacement of [key.1] (" +
                            std::to_string(status) + "), it is placed without."));
  }
}

TEST_F(Replaces, StaysWhenTheCaRefusesTheOrderForAnotherReason) {
  const std::pair<HttpReply, const char*> refusals[] = {
      {ScriptedCa::Problem(429, "rateLimited", "wait"), "104 client_v2: wait"},
      {ScriptedCa::Problem(429, "malformed", "wait"), "104 client_v2: wait"},
      {ScriptedCa::Problem(400, "rejectedIdentifier", "no"),
       "102 client_v2: Failed to issue order{\"detail\":\"no\","
       "\"type\":\"urn:ietf:params:acme:error:rejectedIdentifier\"}"},
      {HttpReply::Text(403, "<html>"), "200 client_v2: new_authz: unexpect httpcode."},
      {HttpReply::Json(403, "[]"), "200 client_v2: new_authz: unexpect httpcode."},
      {ScriptedCa::Problem(500, "malformed", "no"),
       "200 client_v2: new_authz: unexpect httpcode."}};
  for (const auto& [refusal, error] : refusals) {
    client_->NewNonce();
    ca_.Once(kNewOrder, refusal);
    EXPECT_EQ(Place(), error);
    EXPECT_THAT(Placed(), ElementsAre(kReplacing)) << error;
  }
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(Replaces, IsTriedWithoutOnlyOnce) {
  ca_.Once(kNewOrder, ScriptedCa::Problem(400, "malformed", "x"), 2);
  EXPECT_EQ(Place(),
            "102 client_v2: Failed to issue order{\"detail\":\"x\","
            "\"type\":\"urn:ietf:params:acme:error:malformed\"}");
  EXPECT_THAT(Placed(), ElementsAre(kReplacing, kPlain));
}

TEST_F(Replaces, NothingIsTriedAgainWhenNothingIsReplaced) {
  ca_.Once(kNewOrder, ScriptedCa::Problem(409, "alreadyReplaced", "x"));
  EXPECT_EQ(Place(""), "200 client_v2: new_authz: unexpect httpcode.");
  EXPECT_THAT(Placed(), ElementsAre(kPlain));
}

TEST_F(Replaces, ABadNonceIsNoRefusal) {
  ca_.Once(kNewOrder, ScriptedCa::Problem(400, "badNonce", "again"));
  EXPECT_EQ(Place(), "nothing");
  EXPECT_THAT(Placed(), ElementsAre(kReplacing, kReplacing));
}

}  // namespace
}  // namespace kova::test
