#include "client_fixture.h"

namespace kova::test {
namespace {

class Orders : public ClientTest {
 protected:
  Orders() : client_(ReadyClient()) {}

  std::string Place() {
    return ErrorOf([this] { order_ = client_->NewOrder({"a.example"}); });
  }

  // Replaces one member of an otherwise good order.
  HttpReply Altered(const char* member, const std::string& value) const {
    Json::Value order = Parsed(R"({"status": "pending", "authorizations": [], "finalize": "f"})");
    order[member] = Parsed(value);
    return HttpReply::Json(201, order.toStyledString(), {"Location: " + ca_.Url("/order/1")});
  }

  std::unique_ptr<AcmeV2Client> client_;
};

TEST_F(Orders, NameEveryDomainInOrder) {
  client_->NewOrder({"b.example", "*.a.example", "a.example", "b.example"});
  EXPECT_THAT(ca_.Routes(), ElementsAre("POST /new-order"));
  EXPECT_EQ(ca_.Signed()[0].payload,
            "{\"identifiers\":[{\"type\":\"dns\",\"value\":\"b.example\"},"
            "{\"type\":\"dns\",\"value\":\"*.a.example\"},"
            "{\"type\":\"dns\",\"value\":\"a.example\"},"
            "{\"type\":\"dns\",\"value\":\"b.example\"}]}\n");
  EXPECT_EQ(ca_.Signed()[0].header["kid"].asString(), ca_.AccountUrl());
}

TEST_F(Orders, AreWorkedThroughInTheCasOrder) {
  const Order order = client_->NewOrder({"a.example", "b.example", "c.example"});
  ca_.ClearRequests();
  client_->AuthorizeOrder(order);
  const auto routes = ca_.Routes();
  std::vector<std::string> responded;
  for (const std::string& route : routes) {
    if (route.starts_with("POST /challenge/")) responded.push_back(route);
  }
  EXPECT_THAT(responded, ElementsAre("POST /challenge/0/http-01", "POST /challenge/1/http-01",
                                     "POST /challenge/2/http-01"));
}

TEST_F(Orders, ReplaceTheOneBefore) {
  client_->NewOrder({"a.example", "b.example"});
  const Order order = client_->NewOrder({"c.example"});
  ca_.ClearRequests();
  client_->AuthorizeOrder(order);
  EXPECT_EQ(ca_.Count("POST /challenge/0/http-01"), 1U);
  EXPECT_EQ(ca_.Count("POST /challenge/1/http-01"), 0U);
}

TEST_F(Orders, ThatTheCaRefusesSayWhy) {
  struct Refusal {
    HttpReply reply;
    std::string error;
  };
  const Refusal refusals[] = {
      {ScriptedCa::Problem(429, "rateLimited", "50% used up %s"), "104 client_v2: 50% used up %s"},
      {HttpReply::Json(429, "{}"), "104 client_v2: "},
      {HttpReply::Json(429, R"({"detail": {"a": 1}})"), "104 client_v2: "},
      {HttpReply::Text(429, "slow down"), "200 client_network: body is not json."},
      {HttpReply::Json(400, R"({ "type" : "malformed" , "detail" : "100%" })"),
       R"(102 client_v2: Failed to issue order{"detail":"100%","type":"malformed"})"},
      {HttpReply::Json(400, "[1, 2]"), "102 client_v2: Failed to issue order[1,2]"},
      {HttpReply::Json(400, "null"), "102 client_v2: Failed to issue ordernull"},
      {HttpReply::Text(400, "<html>"), "200 client_network: body is not json."},
      {HttpReply::Text(200, "{}"), "200 client_v2: new_authz: unexpect httpcode."},
      {ScriptedCa::Problem(403, "unauthorized", "no"),
       "200 client_v2: new_authz: unexpect httpcode."},
      {HttpReply::Text(500, "<html>"), "200 client_v2: new_authz: unexpect httpcode."},
      {HttpReply::Drop(), "100 client_network: Server is not reachable."}};
  for (const Refusal& refusal : refusals) {
    client_->NewNonce();
    ca_.Once("POST /new-order", refusal.reply);
    EXPECT_EQ(Place(), refusal.error);
  }
  EXPECT_EQ(client_->ChallengeTypes().size(), 1U);
}

TEST_F(Orders, CutALongRefusal) {
  ca_.Once("POST /new-order", ScriptedCa::Problem(400, "x", std::string(5000, 'd')));
  const std::string error = Place();
  EXPECT_TRUE(error.starts_with(R"(102 client_v2: Failed to issue order{"detail":"ddd)"));
  EXPECT_EQ(error.size(), std::string("102 client_v2: ").size() + 511);
}

TEST_F(Orders, AreUnusableWithMembersOfAnotherType) {
  for (const char* value : {"null", "5", "{}", "\"http://x\"", "[5]", "[null]", "[\"u\", []]"}) {
    ca_.Once("POST /new-order", Altered("authorizations", value));
    EXPECT_EQ(Place(), "200 client_v2: unexpect json response.") << value;
  }
  for (const char* value : {"null", "5", "{}", "[\"u\"]", "true"}) {
    ca_.Once("POST /new-order", Altered("finalize", value));
    EXPECT_EQ(Place(), "200 client_v2: unexpect json response.") << value;
  }
}

TEST_F(Orders, AreUnusableWhenTheReplyIsNoObject) {
  for (const char* body : {"[]", "null", "5", "\"order\"", "{}"}) {
    ca_.Once("POST /new-order", HttpReply::Json(201, body));
    EXPECT_EQ(Place(), "200 client_v2: unexpect json response.") << body;
  }
  for (const std::string& body : {std::string(), std::string("<html>"), std::string(100000, '[')}) {
    ca_.Once("POST /new-order", HttpReply::Json(201, body));
    EXPECT_EQ(Place(), "200 client_network: body is not json.");
  }
}

TEST_F(Orders, MayHaveNothingToAuthorize) {
  ca_.Once("POST /new-order", Altered("authorizations", "[]"));
  EXPECT_EQ(Place(), "nothing");
  ca_.ClearRequests();
  client_->AuthorizeOrder(order_);
  EXPECT_THAT(ca_.Routes(), IsEmpty());
}

TEST_F(Orders, NeedNoUrlOfTheirOwn) {
  ca_.Once("POST /new-order", HttpReply::Json(201, R"({"authorizations": [], "finalize": "f"})"));
  EXPECT_EQ(Place(), "nothing");
}

}  // namespace
}  // namespace kova::test
