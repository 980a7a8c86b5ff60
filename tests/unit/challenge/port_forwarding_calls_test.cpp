// What port forwarding asks of the platform, word by word. The platform's calls are defined here,
// so that results no well-behaved platform gives can be given.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "challenge/challenge.h"
#include "output_capture.h"
#include "platform/portmap.h"

namespace {

std::vector<std::string> calls;
int detected = 0;
int set_result = 0;
KOVA_RULE_SET_RESULT answers[2];

std::string Described(const char* name, const KOVA_PORTMAP_RULE* rules, int count) {
  std::string text = std::string(" ") + name + " " + std::to_string(count);
  if (rules == nullptr) return text + " null";
  for (int i = 0; i < count; ++i) {
    text += " {" + std::to_string(rules[i].router_port) + "," + std::to_string(rules[i].reserved) +
            "," + std::to_string(rules[i].device_port) + "}";
  }
  return text;
}

}  // namespace

int KLibKovaPortMapRouterDetect() {
  calls.emplace_back("detect");
  return detected;
}

int KLibKovaPortMapRulesSet(KOVA_RULE_SET_RESULT* results, int result_count, const char* name,
                            const KOVA_PORTMAP_RULE* rules, int rule_count) {
  calls.push_back("set" + Described(name, rules, rule_count) + " results " +
                  std::to_string(result_count));
  for (int i = 0; i < result_count; ++i) {
    if (results[i].port != 0 || results[i].success != 0) calls.emplace_back("dirty result");
    results[i] = answers[i];
  }
  return set_result;
}

int KLibKovaPortMapRulesConfigSet(const char* name, const KOVA_PORTMAP_RULE* rules,
                                  int rule_count) {
  calls.push_back("config" + Described(name, rules, rule_count));
  return -1;  // does not matter to anyone
}

namespace kova::test {
namespace {

using ::testing::ElementsAre;

class PortForwardingCalls : public ::testing::Test {
 protected:
  PortForwardingCalls() {
    calls.clear();
    detected = 0;
    set_result = 0;
    answers[0] = {80, 1};
    answers[1] = {443, 1};
  }

  // The debug messages of an attempt to open the ports.
  static std::vector<std::string> Open(bool expected) {
    OutputCapture output(1);
    EXPECT_EQ(OpenRouterPorts(), expected);
    return output.Debug();
  }
};

TEST_F(PortForwardingCalls, SetBothRulesInOrder) {
  EXPECT_THAT(Open(true), ElementsAre());
  EXPECT_THAT(calls, ElementsAre("detect", "set Letsencrypt 2 {80,0,80} {443,0,443} results 2"));
}

TEST_F(PortForwardingCalls, TakeAnyDetectionResultButZeroForAFailure) {
  for (const int failure : {-5, 1, 300}) {
    detected = failure;
    EXPECT_THAT(Open(false),
                ElementsAre("Failed to port map router detect. [" + std::to_string(failure) + "]",
                            "failed to open port 80."));
  }
  EXPECT_THAT(calls, ElementsAre("detect", "detect", "detect"));
}

TEST_F(PortForwardingCalls, TakeAnySetResultButZeroForAFailure) {
  for (const int failure : {-3, 2}) {
    set_result = failure;
    EXPECT_THAT(Open(false),
                ElementsAre("Failed to set port map rules. [" + std::to_string(failure) + "]",
                            "failed to open port 80."));
  }
}

TEST_F(PortForwardingCalls, NeedPort80DoneAndBothPortsNamedInOrder) {
  const KOVA_RULE_SET_RESULT wrong[][2] = {{{80, 0}, {443, 1}}, {{443, 1}, {80, 1}},
                                           {{80, 1}, {444, 1}}, {{8080, 1}, {443, 1}},
                                           {{80, 1}, {80, 1}},  {{0, 0}, {0, 0}}};
  for (const auto& pair : wrong) {
    answers[0] = pair[0];
    answers[1] = pair[1];
    EXPECT_THAT(Open(false),
                ElementsAre("Incorrect port map rules result", "failed to open port 80."))
        << pair[0].port << " " << pair[1].port;
  }
}

TEST_F(PortForwardingCalls, AreContentWithAnyFlagThatIsNotZeroAndWithoutPort443) {
  answers[0] = {80, 0xff};
  answers[1] = {443, 0};
  EXPECT_THAT(Open(true), ElementsAre());
}

TEST_F(PortForwardingCalls, CloseBySettingNothing) {
  for (const int success : {0, 1}) {
    set_result = success;
    calls.clear();
    CloseRouterPorts();
    EXPECT_THAT(calls, ElementsAre("set Letsencrypt 0 null results 0"));
  }
}

TEST_F(PortForwardingCalls, ForgetTheSetWhenClosingFails) {
  set_result = -1;
  CloseRouterPorts();
  EXPECT_THAT(calls, ElementsAre("set Letsencrypt 0 null results 0", "config Letsencrypt 0 null"));
}

}  // namespace
}  // namespace kova::test
