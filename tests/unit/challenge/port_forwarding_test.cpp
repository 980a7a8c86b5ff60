#include "challenge/challenge.h"
#include "challenge_fixture.h"

namespace kova::test {
namespace {

constexpr char kCalls[] = "/tmp/router-calls";
constexpr char kRecord[] = "/usr/kova/etc/portmap.json";

// A router played by the two hooks, which note how they were called.
class PortForwarding : public ChallengeTest {
 protected:
  PortForwarding() {
    WriteFile(kCalls, "");
    Detect("exit 0");
    Rules("[ $# -gt 1 ] && printf '80 ok\\n443 ok\\n'; exit 0");
  }

  static void Detect(const std::string& body) {
    WriteHook("router-detect", std::string("echo detect >> ") + kCalls + "\n" + body);
  }
  static void Rules(const std::string& body) {
    WriteHook("router-rules", std::string("echo rules \"$@\" >> ") + kCalls + "\n" + body);
  }

  static std::vector<std::string> Calls() { return ReadLines(kCalls); }
};

TEST_F(PortForwarding, OpensBothPortsUnderOneName) {
  OutputCapture output(2);
  EXPECT_TRUE(OpenRouterPorts());
  EXPECT_THAT(Calls(), ElementsAre("detect", "rules Letsencrypt 80:80 443:443"));
  EXPECT_EQ(output.Text(), "");
}

TEST_F(PortForwarding, FailsWithoutARouter) {
  Detect("exit 7");
  OutputCapture output(1);
  EXPECT_FALSE(OpenRouterPorts());
  EXPECT_THAT(output.Debug(),
              ElementsAre("Failed to port map router detect. [7]", "failed to open port 80."));
  EXPECT_THAT(Calls(), ElementsAre("detect"));
}

TEST_F(PortForwarding, FailsWhenTheRulesCannotBeSet) {
  Rules("printf '80 ok\\n443 ok\\n'; exit 1");
  OutputCapture output(1);
  EXPECT_FALSE(OpenRouterPorts());
  EXPECT_THAT(output.Debug(),
              ElementsAre("Failed to set port map rules. [-1]", "failed to open port 80."));
}

TEST_F(PortForwarding, FailsWhenTheRouterRefusesPort80) {
  Rules("printf '80 failed\\n443 ok\\n'");
  OutputCapture output(1);
  EXPECT_FALSE(OpenRouterPorts());
  EXPECT_THAT(output.Debug(),
              ElementsAre("Incorrect port map rules result", "failed to open port 80."));
}

TEST_F(PortForwarding, IsContentWithPort80Alone) {
  Rules("printf '80 ok\\n443 failed\\n'");
  OutputCapture output(2);
  EXPECT_TRUE(OpenRouterPorts());
  EXPECT_EQ(output.Text(), "");
}

TEST_F(PortForwarding, IsQuietAtLevelZero) {
  Detect("exit 1");
  OutputCapture output(0);
  EXPECT_FALSE(OpenRouterPorts());
  EXPECT_EQ(output.Text(), "");
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(PortForwarding, ClosesByRemovingTheSet) {
  OutputCapture output(2);
  CloseRouterPorts();
  EXPECT_THAT(Calls(), ElementsAre("rules Letsencrypt"));
  EXPECT_EQ(output.Text(), "");
}

TEST_F(PortForwarding, ForgetsTheSetEvenWhenTheRouterCannotRemoveIt) {
  WriteFile(kRecord, R"({"Letsencrypt": [{"router_port": 80, "device_port": 80}],
                         "Other": [{"router_port": 22, "device_port": 22}]})");
  Rules("exit 1");
  OutputCapture output(2);
  CloseRouterPorts();
  EXPECT_THAT(Calls(), ElementsAre("rules Letsencrypt"));
  EXPECT_EQ(ReadFile(kRecord).find("Letsencrypt"), std::string::npos);
  EXPECT_NE(ReadFile(kRecord).find("Other"), std::string::npos);
  EXPECT_EQ(output.Text(), "");
}

}  // namespace
}  // namespace kova::test
