#include "challenge_fixture.h"

namespace kova::test {
namespace {

using DdnsUrl = DdnsTest;

TEST_F(DdnsUrl, TakesANameAsItIsWritten) {
  EXPECT_TRUE(Run("X-1.*.Box.ddns.example"));
  ASSERT_EQ(Queries().size(), 2U);
  EXPECT_THAT(Queries()[0], ::testing::HasSubstr("&hostname=X-1.*.Box.ddns.example&"));
}

TEST_F(DdnsUrl, PutsTheCredentialsInUnescaped) {
  WriteFile(kDeviceRecord, R"({"ddns_hostname": "box.ddns.example", "serial_number": "S/N+1",
                               "account": {"id": "i@d", "auth_key": "k=%41"}})");
  EXPECT_TRUE(Run());
  EXPECT_EQ(Queries()[0], std::string("_=letsencrypt%2Fcreate&hostname=") + kDomain +
                              "&tolu_id=i@d&auth_key=k=%41&serial=S/N+1&txt=" + Txt());
}

TEST_F(DdnsUrl, UsesTheBuiltInEndpointUnlessTheSettingsNameOne) {
  KovaDns01Challenge challenge(http_);
  const std::string rest = "hostname=h&tolu_id=&auth_key=&serial=&txt=";
  for (const char* settings : {"{}", R"({"kovaddns": 5})", R"({"kovaddns": ["x"]})"}) {
    WriteFile(kSettingsFile, settings);
    EXPECT_EQ(challenge.BuildDdnsUrl(true, "h"),
              "https://ddns.kova.example/main.php?_=letsencrypt%2Fcreate&" + rest)
        << settings;
  }
  WriteFile(kSettingsFile, R"({"kovaddns": "http://other"})");
  EXPECT_EQ(challenge.BuildDdnsUrl(false, "h"), "http://other?_=letsencrypt%2Fdelete&" + rest);
  WriteFile(kSettingsFile, R"({"kovaddns": ""})");
  EXPECT_EQ(challenge.BuildDdnsUrl(false, "h"), "?_=letsencrypt%2Fdelete&" + rest);
}

TEST_F(DdnsUrl, HasNoUrlWithoutUsableSettings) {
  KovaDns01Challenge challenge(http_);
  WriteFile(kSettingsFile, "not JSON");
  EXPECT_EQ(challenge.BuildDdnsUrl(true, "h"), "");
  ResetHost();
  EXPECT_EQ(challenge.BuildDdnsUrl(true, "h"), "");
}

}  // namespace
}  // namespace kova::test
