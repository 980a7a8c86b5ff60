#include <syslog.h>

#include "challenge/challenge.h"
#include "challenge_fixture.h"

namespace kova::test {
namespace {

using DdnsHost = DdnsTest;

TEST(HostName, HasLettersDigitsAndThreeSignsAlone) {
  EXPECT_TRUE(IsHostName("azAZ09.-_*"));
  for (const char* other :
       {"`", "{", "@", "[", "/", ":", "&", "#", " ", "\n", "\x7f", "\xc3\xa9"}) {
    EXPECT_FALSE(IsHostName(std::string("a") + other)) << other;
  }
}

TEST_F(DdnsHost, IsFoundAnywhereInTheName) {
  EXPECT_TRUE(IsKovaDdnsHost("box.ddns.example"));
  EXPECT_TRUE(IsKovaDdnsHost("x.box.ddns.example"));
  EXPECT_TRUE(IsKovaDdnsHost("box.ddns.example.other"));
  EXPECT_TRUE(IsKovaDdnsHost("mailbox.ddns.example"));
  EXPECT_FALSE(IsKovaDdnsHost("box.ddns.exampl"));
  EXPECT_FALSE(IsKovaDdnsHost("a.example"));
  EXPECT_FALSE(IsKovaDdnsHost(""));
}

TEST_F(DdnsHost, IsComparedWithoutCase) {
  EXPECT_TRUE(IsKovaDdnsHost("X.BOX.ddns.Example"));
  WriteFile(kDeviceRecord, Device("Box.DDNS.example"));
  EXPECT_TRUE(IsKovaDdnsHost("x.box.ddns.example"));
}

TEST_F(DdnsHost, ThatIsNotSetServesNoName) {
  WriteFile(kDeviceRecord, "{}");
  EXPECT_FALSE(IsKovaDdnsHost("box.ddns.example"));
  EXPECT_FALSE(IsKovaDdnsHost(""));
  const auto messages = syslog_.Messages();
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].priority, LOG_DEBUG);
  EXPECT_THAT(syslog_.Texts(), ElementsAre("utils:# No kova DDNS.", "utils:# No kova DDNS."));
}

TEST_F(DdnsHost, ThatIsEmptyServesNoName) {
  WriteFile(kDeviceRecord, Device(""));
  EXPECT_FALSE(IsKovaDdnsHost("box.ddns.example"));
  EXPECT_THAT(syslog_.Texts(), ElementsAre("utils:# No kova DDNS."));
}

TEST_F(DdnsHost, ThatDoesNotFitTheBufferServesNoName) {
  WriteFile(kDeviceRecord, Device(std::string(1024, 'a')));
  EXPECT_FALSE(IsKovaDdnsHost(std::string(2000, 'a')));
  WriteFile(kDeviceRecord, Device(std::string(1023, 'a')));
  EXPECT_TRUE(IsKovaDdnsHost(std::string(2000, 'a')));
}

TEST_F(DdnsHost, DecidesWhatDns01Serves) {
  KovaDns01Challenge challenge(http_);
  EXPECT_TRUE(challenge.isSupport("X.box.ddns.example"));
  EXPECT_FALSE(challenge.isSupport("a.example"));
  EXPECT_EQ(challenge.type(), "dns-01");
}

}  // namespace
}  // namespace kova::test
