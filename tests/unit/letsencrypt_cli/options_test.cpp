#include "letsencrypt_cli/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/debug.h"
#include "output_capture.h"

namespace kova {
namespace {

constexpr char kAll[] = "c:s:d:m:p:v::h";

class OptionsTest : public testing::Test {
 protected:
  ~OptionsTest() override { SetDebugLevel(0); }

  bool Parse(std::vector<std::string> words, const char* accepted = kAll) {
    words.insert(words.begin(), "new-cert");
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    return ParseOptions(static_cast<int>(words.size()), argv.data(), accepted, options_);
  }

  CommandOptions options_;
};

TEST_F(OptionsTest, WithoutAnyTheVersionIsTwo) {
  EXPECT_TRUE(Parse({}));
  EXPECT_EQ(options_.version, "2");
  EXPECT_EQ(options_.certificate_id + options_.server + options_.domains + options_.email, "");
}

TEST_F(OptionsTest, EachGoesToItsMember) {
  EXPECT_TRUE(Parse({"-c", "id", "-s", "https://ca/", "-d", "a;b", "-m", "me@x", "-p", "1"}));
  EXPECT_EQ(options_.certificate_id, "id");
  EXPECT_EQ(options_.server, "https://ca/");
  EXPECT_EQ(options_.domains, "a;b");
  EXPECT_EQ(options_.email, "me@x");
  EXPECT_EQ(options_.version, "1");
}

TEST_F(OptionsTest, ALaterOneReplacesAnEarlier) {
  EXPECT_TRUE(Parse({"-cfirst", "-c", "second"}));
  EXPECT_EQ(options_.certificate_id, "second");
}

TEST_F(OptionsTest, NamesThatWereReplacedAreNoticed) {
  EXPECT_TRUE(Parse({"-d", "a"}));
  EXPECT_FALSE(options_.domains_replaced);
  EXPECT_TRUE(Parse({"-d", "a", "-d", "", "-d", "b"}));
  EXPECT_EQ(options_.domains, "b");
  EXPECT_TRUE(options_.domains_replaced);
}

TEST_F(OptionsTest, VSetsTheDebugLevel) {
  EXPECT_TRUE(Parse({"-v"}));
  EXPECT_EQ(DebugLevel(), 1);
  EXPECT_TRUE(Parse({"-vv"}));
  EXPECT_EQ(DebugLevel(), 2);
  EXPECT_TRUE(Parse({"-vv", "-v"}));
  EXPECT_EQ(DebugLevel(), 1);
  EXPECT_TRUE(Parse({"-v", "-vanything"}));
  EXPECT_EQ(DebugLevel(), 2);
}

TEST_F(OptionsTest, AnUnknownOneAMissingArgumentAndHAreRefused) {
  EXPECT_FALSE(Parse({"-x"}));
  EXPECT_FALSE(Parse({"-d"}));
  EXPECT_FALSE(Parse({"-h"}));
  EXPECT_FALSE(Parse({"-h"}, "c:v::"));
  EXPECT_FALSE(Parse({"-d", "a"}, "c:v::"));
  EXPECT_FALSE(Parse({"--domains"}));
}

TEST_F(OptionsTest, AreParsedAfreshEachTime) {
  EXPECT_FALSE(Parse({"-c", "one", "-x"}));
  EXPECT_TRUE(Parse({"-c", "two"}));
  EXPECT_EQ(options_.certificate_id, "two");
}

TEST(UsageTest, LeavesTwoCommandsOut) {
  test::OutputCapture output;
  PrintUsage();
  const std::vector<std::string> lines = output.Lines();
  ASSERT_GT(lines.size(), 3U);
  EXPECT_EQ(lines[0].rfind("kova-letsencrypt ", 0), 0U);
  EXPECT_EQ(lines[1], "kova-letsencrypt <command> [<args>]");
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find("add-cronjob"), std::string::npos);
    EXPECT_NE(line, "  renew");
  }
}

}  // namespace
}  // namespace kova
