// The renewal record and the renewal job.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "base/files.h"
#include "lifecycle/renewal_job.h"
#include "lifecycle/renewal_record.h"
#include "syslog_capture.h"

namespace kova {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string kFolder = "/run/renewal-test";
const std::string kJob = "/etc/cron.d/kova-letsencrypt";

class RenewalRecordTest : public testing::Test {
 protected:
  RenewalRecordTest() { fs::create_directories(kFolder); }

  static std::optional<RenewalRecord> Read(const std::string& text) {
    std::ofstream(kFolder + "/renew.json") << text;
    return RecordOrMessage(kFolder);
  }

  test::SyslogCapture syslog_;
};

TEST_F(RenewalRecordTest, ItsFourMembersAreRead) {
  const auto record = Read(R"({"server":"s","domains":"a;b","account":"f","version":2,"x":1})");
  ASSERT_TRUE(record.has_value());
  EXPECT_EQ(record->server, "s");
  EXPECT_EQ(record->domains, "a;b");
  EXPECT_EQ(record->account, "f");
  EXPECT_EQ(record->version, 2);
}

TEST_F(RenewalRecordTest, AVersionThatIsNeitherOneNorTwoIsLogged) {
  for (const char* version : {"\"2\"", "0", "3", "-1", "null", "[2]", "2.5"}) {
    syslog_.Clear();
    EXPECT_FALSE(
        Read(std::string(R"({"server":"s","domains":"a","account":"f","version":)") + version + "}")
            .has_value())
        << version;
    EXPECT_THAT(
        syslog_.Texts(),
        ElementsAre("kova-letsencrypt:# renew version seems to be wrong. [" + kFolder + "]"));
  }
}

TEST_F(RenewalRecordTest, WhatIsNoObjectIsLogged) {
  for (const char* text : {"", "{", "[]", "null", "3"}) {
    syslog_.Clear();
    EXPECT_FALSE(Read(text).has_value()) << text;
    EXPECT_THAT(syslog_.Texts(),
                ElementsAre("kova-letsencrypt:# renew info is not json. [" + kFolder + "]"));
  }
}

TEST_F(RenewalRecordTest, AMissingMemberIsLogged) {
  for (const char* text : {R"({"domains":"a","account":"f","version":2})",
                           R"({"server":"s","account":"f","version":2})",
                           R"({"server":"s","domains":"a","version":2})",
                           R"({"server":"s","domains":"a","account":"f"})"}) {
    syslog_.Clear();
    EXPECT_FALSE(Read(text).has_value()) << text;
    EXPECT_THAT(syslog_.Texts(), ElementsAre("kova-letsencrypt:# renew info contain info not "
                                             "enoungh. [" +
                                             kFolder + "]"));
  }
}

class RenewalJobTest : public testing::Test {
 protected:
  RenewalJobTest() {
    fs::create_directories("/etc/cron.d");
    fs::remove(kJob);
  }
};

TEST_F(RenewalJobTest, ItRunsRenewAllAsRootEveryWeek) {
  EXPECT_TRUE(AddRenewalJob({}));
  const std::string job = ReadTextFile(kJob);
  EXPECT_THAT(job, HasSubstr("kova-letsencrypt - renew\n"));
  EXPECT_THAT(job, testing::ContainsRegex("\n[0-9]+ [0-9]+ \\* \\* [0-6][ \t]+root[ \t]+"
                                          "/usr/kova/sbin/kova-letsencrypt renew-all\n$"));
}

TEST_F(RenewalJobTest, OneThatExistsIsLeftAsItIs) {
  std::ofstream(kJob) << "edited\n";
  EXPECT_TRUE(AddRenewalJob({}));
  EXPECT_EQ(ReadTextFile(kJob), "edited\n");
}

TEST_F(RenewalJobTest, RemovingLeavesNoneAndRemovingNoneSucceeds) {
  EXPECT_TRUE(AddRenewalJob({}));
  EXPECT_TRUE(RemoveRenewalJob());
  EXPECT_FALSE(fs::exists(kJob));
  EXPECT_TRUE(RemoveRenewalJob());
}

}  // namespace
}  // namespace kova
