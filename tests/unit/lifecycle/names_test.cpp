#include "lifecycle/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "error_text.h"
#include "output_capture.h"

namespace kova {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(SplitDomainListTest, PiecesAreTrimmedAndEmptyOnesDropped) {
  EXPECT_THAT(SplitDomainList(" a.example ;;b.example "), ElementsAre("a.example", "b.example"));
  EXPECT_THAT(SplitDomainList("a.example; ;b.example;"), ElementsAre("a.example", "b.example"));
  EXPECT_THAT(SplitDomainList("\t\n\v\f\r a\tb \r"), ElementsAre("a\tb"));
}

TEST(SplitDomainListTest, OrderAndDuplicatesAreKept) {
  EXPECT_THAT(SplitDomainList("b;a;b"), ElementsAre("b", "a", "b"));
}

TEST(SplitDomainListTest, NothingIsLeftOfSeparatorsAndBlanks) {
  EXPECT_THAT(SplitDomainList(""), IsEmpty());
  EXPECT_THAT(SplitDomainList(";"), IsEmpty());
  EXPECT_THAT(SplitDomainList(" ; ;\n"), IsEmpty());
}

TEST(SplitDomainListTest, TheSeparatorIsTheCallers) {
  EXPECT_THAT(SplitDomainList("a;b,c", ','), ElementsAre("a;b", "c"));
}

TEST(AnnounceAndValidateTest, NoNameIsAFailureBeforeAnythingIsSaid) {
  test::OutputCapture output(1);
  EXPECT_EQ(test::ErrorOf([] {
              AnnounceAndValidate({"s", {}, "m", ""}, [](const auto&) {});
            }),
            "106 kova-letsencrypt: no valid domain name");
  EXPECT_THAT(output.Debug(), IsEmpty());
}

TEST(AnnounceAndValidateTest, EachNameIsAnnouncedThenChecked) {
  test::OutputCapture output(1);
  std::vector<std::string> checked;
  AnnounceAndValidate({"https://ca/", {"b", "a", "b"}, "me@x", "id"},
                      [&](const std::string& name) { checked.push_back(name); });
  EXPECT_THAT(checked, ElementsAre("b", "a", "b"));
  EXPECT_THAT(output.Debug(),
              ElementsAre("==== start to new cert ====", "Server: https://ca/", "Email: me@x",
                          "Domain: b", "Domain: a", "Domain: b", "=========================="));
}

TEST(AnnounceAndValidateTest, AFailedCheckEndsItThere) {
  test::OutputCapture output(1);
  EXPECT_EQ(test::ErrorOf([] {
              AnnounceAndValidate({"s", {"a", "b"}, "m", ""}, [](const std::string&) {
                throw Error(108, "kova-letsencrypt", "no");
              });
            }),
            "108 kova-letsencrypt: no");
  EXPECT_EQ(output.Debug().back(), "Domain: a");
}

}  // namespace
}  // namespace kova
