// What can be known of names, addresses and URLs without asking anybody.
#include "lifecycle/name_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kova {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(NameCheckTest, TidiesNames) {
  EXPECT_THAT(TidyNames({"b.Example", "a.example", "B.EXAMPLE", "*.a.example"}),
              ElementsAre("b.example", "a.example", "*.a.example"));
  EXPECT_THAT(TidyNames({}), IsEmpty());
}

TEST(NameCheckTest, TakesHostNames) {
  for (const char* name : {"a", "a.example", "A-1.Example", "*.a.example", "xn--bcher-kva.example",
                           "1.2.3.example", "1.2.3.4.example", "*.a"}) {
    EXPECT_EQ(WhyNoName(name), "") << name;
  }
  EXPECT_EQ(WhyNoName(std::string(63, 'x') + ".example"), "");
}

TEST(NameCheckTest, TakesNamesUpTo253Characters) {
  const std::string label = std::string(62, 'x') + ".";
  const std::string name = label + label + label + label;  // 252, a dot at its end
  EXPECT_EQ(WhyNoName(name + "y"), "");
  EXPECT_EQ(WhyNoName(name + "yy"), "it has more than 253 characters");
}

TEST(NameCheckTest, TakesNothingElse) {
  for (const char* name : {"",    ".",    "*",   "*.",    "a.",        ".a",  "a..b",
                           "-a",  "a-",   "a_b", "a b",   "a/b",       "a:1", "a;b",
                           "a,b", "**.a", "a.*", "*.*.a", "127.0.0.1", "::1", "\u00fc.example",
                           "a\nb"}) {
    EXPECT_NE(WhyNoName(name), "") << name;
  }
  EXPECT_NE(WhyNoName(std::string("a\0b", 3)), "");
}

TEST(NameCheckTest, QuotesTheFirstBadName) {
  EXPECT_EQ(WhyNoNames({"a.example", "b.example"}), "");
  EXPECT_THAT(WhyNoNames({"a.example", "B_", "-"}), HasSubstr("[B_] is no host name: "));
  EXPECT_EQ(WhyNoNames({}), "no host name is given");
}

TEST(NameCheckTest, FirstNameHas64Characters) {
  const std::string name = std::string(56, 'x') + ".example";
  EXPECT_EQ(WhyNoNames({name}), "");
  EXPECT_THAT(WhyNoNames({"x" + name}), HasSubstr("more than 64 characters"));
  EXPECT_EQ(WhyNoNames({"a.example", "x" + name}), "");
}

TEST(NameCheckTest, KnowsMailAddresses) {
  for (const char* mail : {"a@b", "Admin+acme@host.example", "o'neill@host.example"}) {
    EXPECT_EQ(WhyNoMail(mail), "") << mail;
  }
  for (const char* mail : {"", "a", "@b", "a@", "a@b@c", "a b@c", "a@b c", "a@[127.0.0.1]", "a@*.b",
                           "\"a\"@b", "a@b\n", "\u00fc@b", "mailto:a@b"}) {
    EXPECT_NE(WhyNoMail(mail), "") << mail;
  }
}

TEST(NameCheckTest, KnowsDirectoryUrls) {
  for (const char* url : {"https://ca.example/directory", "http://127.0.0.1:14000/dir"}) {
    EXPECT_EQ(WhyNoDirectory(url), "") << url;
  }
  for (const char* url : {"", "https://", "http://", "ca.example", "ftp://ca.example", "HTTPS",
                          "https://a b", "https://a\n", "https://\u00fc"}) {
    EXPECT_NE(WhyNoDirectory(url), "") << url;
  }
}

}  // namespace
}  // namespace kova
