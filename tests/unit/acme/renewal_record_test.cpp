#include "acme/renewal_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "error_text.h"
#include "host_files.h"

namespace kova::test {
namespace {

const std::string kFolder = "/run/record-test";

class RenewalRecordTest : public ::testing::Test {
 protected:
  RenewalRecordTest() {
    ResetHost();
    std::filesystem::remove_all(kFolder);
    std::filesystem::create_directories(kFolder);
  }

  RecordProblem Read(const std::string& text) {
    WriteFile(kFolder + "/renew.json", text);
    return ReadRenewalRecord(kFolder, record_);
  }

  RenewalRecord record_;
};

TEST_F(RenewalRecordTest, WhatWasWrittenIsRead) {
  const RenewalRecord written{"https://ca.example/directory", "a.example;b.example", "/account", 2};
  WriteRenewalRecord(kFolder, written);
  ASSERT_EQ(ReadRenewalRecord(kFolder, record_), RecordProblem::kNone);
  EXPECT_EQ(record_.server, written.server);
  EXPECT_EQ(record_.domains, written.domains);
  EXPECT_EQ(record_.account, written.account);
  EXPECT_EQ(record_.version, 2);
}

TEST_F(RenewalRecordTest, IsWrittenStyledForTheOwnerAlone) {
  WriteRenewalRecord(kFolder, {"s", "a", "f", 1});
  EXPECT_EQ(ReadFile(kFolder + "/renew.json"),
            "{\n   \"account\" : \"f\",\n   \"domains\" : \"a\",\n   \"server\" : \"s\",\n"
            "   \"version\" : 1\n}\n");
  EXPECT_EQ(ModeOf(kFolder + "/renew.json"), 0400U);
}

TEST_F(RenewalRecordTest, AKeyTypeIsThereWhenItWasChosen) {
  RenewalRecord written{"s", "a", "f", 2};
  written.key_type = "ec256";
  WriteRenewalRecord(kFolder, written);
  EXPECT_NE(ReadFile(kFolder + "/renew.json").find("   \"key_type\" : \"ec256\",\n"),
            std::string::npos);
  ASSERT_EQ(ReadRenewalRecord(kFolder, record_), RecordProblem::kNone);
  EXPECT_EQ(record_.key_type, "ec256");
  const std::string four = R"({"server":"s","domains":"a","account":"f","version":2)";
  EXPECT_EQ(Read(four + "}"), RecordProblem::kNone);
  EXPECT_EQ(record_.key_type, std::nullopt);
  EXPECT_EQ(Read(four + R"(,"key_type":7})"), RecordProblem::kNone);
  EXPECT_EQ(record_.key_type, "");
}

TEST_F(RenewalRecordTest, WhatIsNoObjectIsNotJson) {
  for (const char* text : {"", "{", "[]", "null", "3", "\"x\""}) {
    EXPECT_EQ(Read(text), RecordProblem::kNotJson) << text;
  }
  std::filesystem::remove(kFolder + "/renew.json");
  EXPECT_EQ(ReadRenewalRecord(kFolder, record_), RecordProblem::kNotJson);
}

TEST_F(RenewalRecordTest, EachOfTheFourMembersHasToBeThere) {
  for (const char* text : {R"({"domains":"a","account":"f","version":2})",
                           R"({"server":"s","account":"f","version":2})",
                           R"({"server":"s","domains":"a","version":2})",
                           R"({"server":"s","domains":"a","account":"f"})", "{}"}) {
    EXPECT_EQ(Read(text), RecordProblem::kIncomplete) << text;
  }
}

TEST_F(RenewalRecordTest, ATextOfAnotherTypeCountsAsEmpty) {
  for (const char* value : {"null", "7", "true", "[\"a.example\"]", "{}"}) {
    const std::string other = value;
    ASSERT_EQ(Read(R"({"server":)" + other + R"(,"domains":)" + other + R"(,"account":)" + other +
                   R"(,"version":2})"),
              RecordProblem::kNone)
        << value;
    EXPECT_EQ(record_.server + record_.domains + record_.account, "") << value;
    EXPECT_EQ(record_.version, 2) << value;
  }
}

TEST_F(RenewalRecordTest, AVersionOfAnotherTypeIsNone) {
  for (const char* value : {"null", "\"2\"", "true", "[2]", "2.5", "4294967298"}) {
    ASSERT_EQ(
        Read(R"({"server":"s","domains":"a","account":"f","version":)" + std::string(value) + "}"),
        RecordProblem::kNone)
        << value;
    EXPECT_EQ(record_.version, 0) << value;
  }
}

TEST_F(RenewalRecordTest, KeepsProfileAndChain) {
  RenewalRecord written;
  written.profile = "short";
  written.preferred_chain = "Root X";
  WriteRenewalRecord(kFolder, written);
  ASSERT_EQ(ReadRenewalRecord(kFolder, record_), RecordProblem::kNone);
  EXPECT_EQ(record_.profile, "short");
  EXPECT_EQ(record_.preferred_chain, "Root X");
  EXPECT_EQ(record_.no_text, "");
  ASSERT_EQ(Read(R"({"server":"s","domains":"a","account":"f","version":2,
                     "profile":null,"preferred_chain":["X"]})"),
            RecordProblem::kNone);
  EXPECT_EQ(record_.profile + record_.preferred_chain, "");
  EXPECT_EQ(record_.no_text, "preferred_chain");
}

TEST_F(RenewalRecordTest, NothingOfAnEarlierRecordStays) {
  ASSERT_EQ(Read(R"({"server":"s","domains":"a","account":"f","version":2})"),
            RecordProblem::kNone);
  EXPECT_EQ(Read("{"), RecordProblem::kNotJson);
  EXPECT_EQ(record_.server, "");
  EXPECT_EQ(record_.version, 0);
}

}  // namespace
}  // namespace kova::test
