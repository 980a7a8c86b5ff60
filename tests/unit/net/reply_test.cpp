#include <gtest/gtest.h>

#include "base/sl_error.h"
#include "net/client_network.h"

namespace kova {
namespace {

HttpResponse Completed(std::string body) {
  HttpResponse response;
  response.ok = true;
  response.status = 200;
  response.body = std::move(body);
  return response;
}

void ExpectNotJson(const std::string& body) {
  try {
    GetJsonBody(Completed(body));
    ADD_FAILURE() << "taken as JSON: " << body.substr(0, 40);
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 200);
    EXPECT_EQ(error.message, "body is not json.");
    EXPECT_EQ(error.file, "client_network");
  }
}

template <class Action>
void ExpectNoTransfer(Action action) {
  try {
    action(HttpResponse());
    ADD_FAILURE() << "no error";
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 200);
    EXPECT_EQ(error.message, "request not sucess.");
    EXPECT_EQ(error.file, "client_network");
  }
}

TEST(HttpResponse, IsAFailureUntilATransferCompletes) {
  const HttpResponse response;
  EXPECT_FALSE(response.ok);
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.header, "");
  EXPECT_EQ(response.body, "");
}

TEST(GetBody, GivesTheBody) {
  EXPECT_EQ(GetBody(Completed(std::string("a\0b", 3))), std::string("a\0b", 3));
  EXPECT_EQ(GetBody(Completed("")), "");
}

TEST(GetBody, ThrowsWhenNoTransferCompleted) {
  ExpectNoTransfer([](const HttpResponse& response) { GetBody(response); });
}

TEST(GetJsonBody, GivesAValueOfAnyType) {
  EXPECT_EQ(GetJsonBody(Completed(R"({"a":[1]})"))["a"][0].asInt(), 1);
  EXPECT_TRUE(GetJsonBody(Completed("[]")).isArray());
}

TEST(GetJsonBody, ThrowsWhenNoTransferCompleted) {
  ExpectNoTransfer([](const HttpResponse& response) { GetJsonBody(response); });
}

TEST(GetJsonBody, ThrowsWhenItIsNotJson) {
  ExpectNotJson("");
  ExpectNotJson("<html>nginx</html>");
  ExpectNotJson(R"({"a":)");
  ExpectNotJson(R"({"a":"cut off)");
  ExpectNotJson(std::string(100, '\0'));
}

TEST(GetJsonBody, ThrowsWhenItIsNestedTooDeeply) {
  ExpectNotJson(std::string(100000, '['));
  ExpectNotJson(std::string(100000, '[') + std::string(100000, ']'));
  std::string objects;
  for (int i = 0; i < 100000; ++i) objects += R"({"a":)";
  ExpectNotJson(objects);
}

}  // namespace
}  // namespace kova
