#include "platform/crond.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <set>
#include <sstream>

#include "faults.h"
#include "host_files.h"
#include "platform/error.h"
#include "scratch.h"

namespace KOVA::KOVACrond {
namespace {

using kova::test::FaultScope;
using kova::test::ListFolder;
using kova::test::ModeOf;
using kova::test::ReadFile;
using kova::test::Scratch;
using kova::test::Umask;
using kova::test::WriteFile;
using testing::Contains;
using testing::MatchesRegex;
using testing::Not;

constexpr char kJob[] = "kova-letsencrypt";
constexpr char kPath[] = "/etc/cron.d/kova-letsencrypt";
constexpr char kMachineIdPath[] = "/etc/machine-id";

Json::Value Renewal() {
  Json::Value job(Json::objectValue);
  job["name"] = "kova-letsencrypt - renew";
  job["cmd"] = "/usr/kova/sbin/kova-letsencrypt renew-all";
  job["user"] = "root";
  job["period"] = "weekly";
  return job;
}

Json::Value Jobs(const Json::Value& job) {
  Json::Value jobs(Json::arrayValue);
  jobs.append(job);
  return jobs;
}

Json::Value With(const char* key, const Json::Value& value) {
  Json::Value job = Renewal();
  job[key] = value;
  return Jobs(job);
}

// The second line of the file, word by word.
std::vector<std::string> CrontabWords(const std::string& text) {
  std::istringstream lines(text);
  std::string comment;
  std::string line;
  std::getline(lines, comment);
  std::getline(lines, line);
  std::istringstream words(line);
  return {std::istream_iterator<std::string>(words), {}};
}

class CrondTest : public testing::Test {
 protected:
  CrondTest() {
    WriteFile("/etc/cron.d/other", "# other\n");
    unlink(kPath);
  }
  ~CrondTest() override {
    unlink(kPath);
    unlink("/etc/cron.d/other");
    WriteFile(kMachineIdPath, machine_id_);
  }

  std::string SavedOnHost(const std::string& machine_id, const Json::Value& jobs) {
    WriteFile(kMachineIdPath, machine_id + "\n");
    EXPECT_TRUE(manager_.Save(jobs));
    return ReadFile(kPath);
  }

  ConfigManager manager_{kJob, false};
  std::string machine_id_ = ReadFile(kMachineIdPath);
};

TEST_F(CrondTest, AJobIsACommentLineAndACrontabLine) {
  EXPECT_FALSE(manager_.Exist());
  const Umask umask(0777);
  EXPECT_TRUE(manager_.Save(Jobs(Renewal())));
  EXPECT_TRUE(manager_.Exist());
  EXPECT_THAT(ReadFile(kPath),
              MatchesRegex("# kova-letsencrypt - renew\n[0-9]{1,2} [0-9]{1,2} \\* \\* [0-6] root "
                           "/usr/kova/sbin/kova-letsencrypt renew-all\n"));
  EXPECT_EQ(ModeOf(kPath), 0644U);
  EXPECT_EQ(kova::test::StatusOf(kPath).st_uid, 0U);
}

TEST_F(CrondTest, ThePeriodDecidesTheDays) {
  EXPECT_TRUE(manager_.Save(With("period", "daily")));
  EXPECT_THAT(ReadFile(kPath), MatchesRegex("# [^\n]*\n[0-9]+ [0-9]+ \\* \\* \\* root [^\n]*\n"));
  EXPECT_TRUE(manager_.Save(With("period", "weekly")));
  EXPECT_THAT(ReadFile(kPath), MatchesRegex("# [^\n]*\n[0-9]+ [0-9]+ \\* \\* [0-6] root [^\n]*\n"));
  EXPECT_TRUE(manager_.Save(With("period", "monthly")));
  EXPECT_THAT(ReadFile(kPath), MatchesRegex("# [^\n]*\n[0-9]+ [0-9]+ 1 \\* \\* root [^\n]*\n"));
}

TEST_F(CrondTest, TellsTheMomentThatItWrites) {
  for (const char* id : {"0123456789abcdef0123456789abcdef", "fedcba9876543210fedcba9876543210"}) {
    const std::vector<std::string> words = CrontabWords(SavedOnHost(id, Jobs(Renewal())));
    EXPECT_EQ(words.at(0), std::to_string(manager_.Moment().minute));
    EXPECT_EQ(words.at(1), std::to_string(manager_.Moment().hour));
    EXPECT_EQ(words.at(4), std::to_string(manager_.Moment().weekday));
  }
}

TEST_F(CrondTest, SeveralObjectsAreSeveralPairsOfLines) {
  Json::Value jobs = Jobs(Renewal());
  Json::Value second = Renewal();
  second["name"] = "second";
  second["cmd"] = "/bin/true";
  second["period"] = "daily";
  jobs.append(second);
  EXPECT_TRUE(manager_.Save(jobs));
  EXPECT_THAT(ReadFile(kPath),
              MatchesRegex("# kova-letsencrypt - renew\n[^\n]* renew-all\n# second\n"
                           "[0-9]+ [0-9]+ \\* \\* \\* root /bin/true\n"));
}

TEST_F(CrondTest, TheTimeIsTheHostsOwnAndStable) {
  const std::string first = SavedOnHost("0123456789abcdef0123456789abcdef", Jobs(Renewal()));
  EXPECT_EQ(SavedOnHost("0123456789abcdef0123456789abcdef", Jobs(Renewal())), first);
  EXPECT_NE(SavedOnHost("0123456789abcdef0123456789abcdee", Jobs(Renewal())), first);
  // A change of this line would move every installed host's renewal to another time.
  EXPECT_THAT(first, testing::StartsWith("# kova-letsencrypt - renew\n21 21 * * 4 root "));
}

TEST_F(CrondTest, TheTimesOfAFleetAreSpreadEvenly) {
  constexpr int kHosts = 6000;
  std::map<int, int> minutes;
  std::map<int, int> hours;
  std::map<int, int> weekdays;
  std::set<std::string> moments;
  for (int host = 0; host < kHosts; ++host) {
    char id[33];
    std::snprintf(id, sizeof id, "4b1d%028x", static_cast<unsigned>(host));  // bought in one lot
    const auto words = CrontabWords(SavedOnHost(id, Jobs(Renewal())));
    ASSERT_GE(words.size(), 6U);
    ++minutes[std::stoi(words[0])];
    ++hours[std::stoi(words[1])];
    ++weekdays[std::stoi(words[4])];
    moments.insert(words[0] + " " + words[1] + " " + words[4]);
  }
  const auto expect_even = [](const std::map<int, int>& counts, int kinds, const char* what) {
    EXPECT_EQ(counts.size(), static_cast<size_t>(kinds)) << what;
    EXPECT_EQ(counts.begin()->first, 0) << what;
    EXPECT_EQ(counts.rbegin()->first, kinds - 1) << what;
    for (const auto& [value, count] : counts) {
      EXPECT_NEAR(count, kHosts / kinds, kHosts / kinds / 2) << what << " " << value;
    }
  };
  expect_even(minutes, 60, "minute");
  expect_even(hours, 24, "hour");
  expect_even(weekdays, 7, "weekday");
  EXPECT_GT(moments.size(), 4000U);  // of 10080; chance alone gives about 4520
}

TEST_F(CrondTest, JobsOfOneHostHaveTimesOfTheirOwn) {
  WriteFile(kMachineIdPath, "0123456789abcdef0123456789abcdef\n");
  const ConfigManager other("kova-other", false);
  EXPECT_TRUE(manager_.Save(Jobs(Renewal())));
  EXPECT_TRUE(other.Save(Jobs(Renewal())));
  EXPECT_NE(ReadFile(kPath), ReadFile("/etc/cron.d/kova-other"));
  EXPECT_TRUE(other.Remove());
}

TEST_F(CrondTest, AHostWithoutMachineIdHasAJobAllTheSame) {
  unlink(kMachineIdPath);
  EXPECT_TRUE(manager_.Save(Jobs(Renewal())));
  EXPECT_EQ(CrontabWords(ReadFile(kPath)).size(), 8U);
}

TEST_F(CrondTest, APercentSignOfTheCommandIsEscapedForCron) {
  const std::vector<std::pair<std::string, std::string>> commands = {
      {"date +%s", "date +\\%s"},
      {"date +\\%s", "date +\\%s"},    // already is
      {"echo \\\\%", "echo \\\\\\%"},  // the backslash before it is itself escaped
      {"echo 100%%", "echo 100\\%\\%"},
      {"echo \\n", "echo \\n"}};
  for (const auto& [command, written] : commands) {
    EXPECT_TRUE(manager_.Save(With("cmd", command)));
    EXPECT_THAT(ReadFile(kPath), testing::EndsWith(" root " + written + "\n"));
  }
}

TEST_F(CrondTest, WhatCannotBeAJobIsRefusedAndTheOldOneKept) {
  ASSERT_TRUE(manager_.Save(Jobs(Renewal())));
  const std::string before = ReadFile(kPath);
  Json::Value mixed = Jobs(Renewal());
  mixed.append("text");
  std::vector<Json::Value> refused = {Json::Value(), Json::Value(Json::arrayValue), Renewal(),
                                      Jobs("text"),  Jobs(Json::Value()),           mixed};
  for (const char* key : {"name", "cmd", "user", "period"}) {
    for (const Json::Value& value :
         {Json::Value(), Json::Value(7), Json::Value(""), Json::Value("  "), Json::Value("a\nb"),
          Json::Value("a\rb"), Json::Value("weekly\n"), Json::Value(std::string("a\0b", 3))}) {
      refused.push_back(With(key, value));
    }
  }
  for (const char* period : {"hourly", "Weekly", "weekly ", "7"})
    refused.push_back(With("period", period));
  for (const char* user : {"no-such-user", "root root", " root"})
    refused.push_back(With("user", user));
  for (const Json::Value& jobs : refused) {
    EXPECT_FALSE(manager_.Save(jobs)) << jobs.toStyledString();
    EXPECT_EQ(KLIBCErrGet(), EINVAL);
    EXPECT_EQ(ReadFile(kPath), before) << jobs.toStyledString();
  }
}

TEST_F(CrondTest, ANameThatCronIgnoresIsRefused) {
  for (const char* name : {"", "a.b", "a/b", "../x", "a b", "."}) {
    const ConfigManager manager(name, false);
    EXPECT_FALSE(manager.Save(Jobs(Renewal()))) << name;
    EXPECT_EQ(KLIBCErrGet(), EINVAL) << name;
  }
  EXPECT_THAT(ListFolder("/etc"), Not(Contains("x")));
}

TEST_F(CrondTest, AFailedWriteLeavesTheOldJobAndNoOtherFile) {
  ASSERT_TRUE(manager_.Save(Jobs(Renewal())));
  const std::string before = ReadFile(kPath);
  const auto names = ListFolder("/etc/cron.d");
  FaultScope scope;
  scope.faults.failing = "write";
  scope.faults.error = ENOSPC;
  EXPECT_FALSE(manager_.Save(With("period", "daily")));
  EXPECT_EQ(KLIBCErrGet(), ENOSPC);
  EXPECT_EQ(ReadFile(kPath), before);
  EXPECT_EQ(ListFolder("/etc/cron.d"), names);
}

TEST_F(CrondTest, RemovingDeletesTheFileAlone) {
  EXPECT_FALSE(manager_.Remove());
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
  ASSERT_TRUE(manager_.Save(Jobs(Renewal())));
  EXPECT_TRUE(manager_.Remove());
  EXPECT_FALSE(manager_.Exist());
  EXPECT_THAT(ListFolder("/etc/cron.d"), Contains("other"));
}

TEST_F(CrondTest, AJobThatAnAdministratorWroteExists) {
  WriteFile(kPath, "");
  EXPECT_TRUE(manager_.Exist());
}

TEST_F(CrondTest, AJobIsHeldOnlyAsItWouldBeSaved) {
  const ConfigManager manager(kJob, false);
  EXPECT_FALSE(manager.Holds(Jobs(Renewal())));
  ASSERT_TRUE(manager.Save(Jobs(Renewal())));
  EXPECT_TRUE(manager.Holds(Jobs(Renewal())));
  EXPECT_FALSE(manager.Holds(With("period", "daily")));
  WriteFile(kPath, ReadFile(kPath) + "# mine\n");
  EXPECT_FALSE(manager.Holds(Jobs(Renewal())));
  WriteFile(kPath, "");
  EXPECT_FALSE(manager.Holds(With("period", "never")));
}

}  // namespace
}  // namespace KOVA::KOVACrond
