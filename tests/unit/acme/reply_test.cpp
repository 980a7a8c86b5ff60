// What both protocol versions take from a CA's replies.
#include "acme/reply.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "acme/nonce_pool.h"
#include "error_text.h"
#include "output_capture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

HttpResponse Reply(long status, const std::string& body = {}, const std::string& header = {}) {
  HttpResponse response;
  response.ok = true;
  response.status = status;
  response.body = body;
  response.header = header;
  return response;
}

constexpr char kProblem[] = R"({"type": "urn:ietf:params:acme:error:badNonce", "detail": "Why."})";

TEST(ReplyTest, AProblemIsOfOneType) {
  const Json::Value problem = ObjectBody("tag", Reply(400, kProblem));
  EXPECT_TRUE(IsProblem(problem, kBadNonceProblem));
  EXPECT_FALSE(IsProblem(problem, kOrderNotReadyProblem));
  EXPECT_FALSE(IsProblem(Json::Value("text"), kBadNonceProblem));
}

TEST(ReplyTest, ABodyIsAnObject) {
  EXPECT_EQ(ObjectBody("tag", Reply(200, R"({"a": 1})"))["a"], 1);
  for (const char* body : {"[]", "1", "null", "\"text\""}) {
    EXPECT_EQ(ErrorOf([&] { ObjectBody("tag", Reply(200, body)); }),
              "200 tag: unexpect json response.")
        << body;
  }
  EXPECT_THAT(ErrorOf([] { ObjectBody("tag", Reply(200, "{")); }),
              testing::EndsWith("body is not json."));
}

TEST(ReplyTest, ADetailIsPassedOn) {
  EXPECT_EQ(ProblemDetail(Reply(400, kProblem)), "Why.");
  EXPECT_EQ(ProblemDetail(Reply(400, "{}")), "");
  EXPECT_EQ(ProblemDetail(Reply(400, R"({"detail": 5})")), "");
  EXPECT_EQ(WithCause(Error(200, "tag", "What."), Reply(400, kProblem)).cause, "Why.");
  EXPECT_EQ(WithCause(Error(200, "tag", "What."), Reply(400, "no JSON")).cause, "");
}

TEST(ReplyTest, ARefusalSaysWhatTheCaAnswered) {
  const auto refused = [](const std::string& body) { throw RefusedByCa("tag", Reply(403, body)); };
  EXPECT_EQ(ErrorOf([&] { refused(kProblem); }), "200 tag: the CA answered 403: Why.");
  for (const char* body : {"{}", "no JSON", "[]"}) {
    EXPECT_EQ(ErrorOf([&] { refused(body); }), "200 tag: the CA answered 403") << body;
  }
}

TEST(ReplyTest, ARequiredMemberIsAText) {
  Json::Value object(Json::objectValue);
  object["url"] = "https://ca.example/1";
  object["number"] = 5;
  EXPECT_EQ(RequiredText("tag", object, "url"), "https://ca.example/1");
  for (const char* name : {"number", "missing"}) {
    EXPECT_EQ(ErrorOf([&] { RequiredText("tag", object, name); }),
              "200 tag: unexpect json response.")
        << name;
  }
}

TEST(ReplyTest, ADirectoryHasAllOfItsResources) {
  const HttpResponse reply = Reply(200, R"({"newNonce": "n", "newOrder": "o", "meta": {}})");
  EXPECT_EQ(DirectoryBody("tag", reply, {"newNonce", "newOrder"})["newOrder"], "o");
  for (const char* name : {"meta", "revokeCert"}) {
    EXPECT_EQ(ErrorOf([&] {
                DirectoryBody("tag", reply, {"newNonce", name});
              }),
              "200 tag: Directory Member missing.")
        << name;
  }
}

TEST(ReplyTest, ARegistrationIsCreated) {
  const auto error = [](long status) {
    return ErrorOf([&] { RequireRegistered("tag", Reply(status, kProblem), "Unexpected."); });
  };
  EXPECT_EQ(error(201), "nothing");
  EXPECT_EQ(error(400), "105 tag: Why.");
  EXPECT_EQ(error(429), "103 tag: Why.");
  for (const long status : {200L, 403L, 500L}) EXPECT_EQ(error(status), "200 tag: Unexpected.");
}

TEST(ReplyTest, ARevocationMayHaveBeenBefore) {
  OutputCapture output(1);
  EXPECT_TRUE(RequireRevoked("tag", Reply(200)));
  EXPECT_THAT(output.Debug(), IsEmpty());
  EXPECT_FALSE(RequireRevoked("tag", Reply(409, kProblem)));
  EXPECT_THAT(output.Debug(), ElementsAre("Has already revoked"));
  EXPECT_EQ(ErrorOf([] { (void)RequireRevoked("tag", Reply(403, kProblem)); }),
            "200 tag: Revoke failed - 403  Why.");
}

TEST(NoncePoolTest, TheNewestIsTakenFirstAndOnce) {
  NoncePool pool("tag");
  EXPECT_TRUE(pool.IsEmpty());
  pool.Keep(Reply(200, "", "HTTP/1.1 200 OK\r\nReplay-Nonce: one\r\n"));
  pool.Keep(Reply(400, "", "HTTP/1.1 200 OK\r\nReplay-Nonce: two\r\n"));
  pool.Keep(Reply(200, "", "HTTP/1.1 200 OK\r\nReplay-Nonce: \r\n"));
  pool.Keep(Reply(200));
  EXPECT_EQ(pool.Take(), "two");
  EXPECT_EQ(pool.Take(), "one");
  EXPECT_TRUE(pool.IsEmpty());
  EXPECT_EQ(ErrorOf([&] { pool.Take(); }), "204 tag: No Nonce.... Not Yet implement");
}

}  // namespace
}  // namespace kova::test
