#include "platform/router_answer.h"

#include <gmock/gmock.h>

namespace kova::platform {
namespace {

const Gateway kGateway{"http://192.168.1.1:5000/ctl", "urn:x:service:WANIPConnection:1",
                       "192.168.1.7"};
const std::string kGatewayText = "gateway\n" + kGateway.control_url + "\n" + kGateway.service_type +
                                 "\n" + kGateway.host_address + "\n";

TEST(RouterAnswerTest, WhatIsWrittenIsRead) {
  for (const int result : {0, kGatewayUnreachable, 501, 1, 9999}) {
    for (const bool with_gateway : {true, false}) {
      RouterAnswer answer;
      answer.result = result;
      answer.granted = {true, false, true};
      if (with_gateway) answer.gateway = kGateway;
      const auto read = ReadRouterAnswer(RouterAnswerText(answer), 3);
      ASSERT_TRUE(read.has_value()) << result;
      EXPECT_EQ(read->result, result);
      EXPECT_EQ(read->granted, answer.granted);
      EXPECT_EQ(read->gateway, answer.gateway);
    }
  }
}

TEST(RouterAnswerTest, TheFormIsFixed) {
  RouterAnswer answer;
  EXPECT_EQ(RouterAnswerText(answer), "gone\n\nnone\n");
  answer.result = 606;
  answer.granted = {true, false};
  answer.gateway = kGateway;
  EXPECT_EQ(RouterAnswerText(answer), "refused 606\n10\n" + kGatewayText);
}

TEST(RouterAnswerTest, NothingElseIsAnAnswer) {
  for (const std::string& text : {std::string(),
                                  std::string("ok"),
                                  std::string("ok\n"),
                                  std::string("ok\n10\n"),
                                  std::string("ok\n10\nnone"),
                                  std::string("ok\n1\nnone\n"),
                                  std::string("ok\n100\nnone\n"),
                                  std::string("ok\n1x\nnone\n"),
                                  std::string("OK\n10\nnone\n"),
                                  std::string(" ok\n10\nnone\n"),
                                  std::string("ok\n10\nnone\nmore\n"),
                                  std::string("ok\n10\nnone\n\0", 12),
                                  std::string("ok\n10\nnobody\n"),
                                  std::string("refused\n10\nnone\n"),
                                  std::string("refused 0\n10\nnone\n"),
                                  std::string("refused -1\n10\nnone\n"),
                                  std::string("refused 10000\n10\nnone\n"),
                                  std::string("refused 99999999999999\n10\nnone\n"),
                                  std::string("refused 7x\n10\nnone\n"),
                                  std::string("refused 012\n10\nnone\n"),
                                  std::string("refused +7\n10\nnone\n"),
                                  std::string("ok\n10\ngateway\n"),
                                  std::string("ok\n10\ngateway\na\nb\n"),
                                  std::string("ok\n10\ngateway\na\nb\n1.2.3.4"),
                                  std::string("ok\n10\ngateway\na\nb\nhost\n"),
                                  std::string("ok\n10\ngateway\n\nb\n1.2.3.4\n"),
                                  std::string("ok\n10\ngateway\na b\nb\n1.2.3.4\n"),
                                  std::string("ok\n10\ngateway\na\xff\nb\n1.2.3.4\n"),
                                  std::string("ok\n10\ngateway\na\nb\x1b\n1.2.3.4\n"),
                                  std::string("ok\n10\ngateway\na\nb\n1.2.3.4\nmore\n"),
                                  std::string(4096, 'x')}) {
    EXPECT_FALSE(ReadRouterAnswer(text, 2).has_value()) << text;
  }
}

TEST(RouterAnswerTest, NoCutOfAnAnswerIsOne) {
  const std::string whole = "refused 606\n10\n" + kGatewayText;
  ASSERT_TRUE(ReadRouterAnswer(whole, 2).has_value());
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_FALSE(ReadRouterAnswer(whole.substr(0, length), 2).has_value()) << length;
  }
}

}  // namespace
}  // namespace kova::platform
