#include "platform/hooks.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "host_files.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using test::Exists;
using test::InChild;
using test::ReadFile;
using test::Scratch;
using test::SyslogCapture;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

class HooksTest : public testing::Test {
 protected:
  HooksTest() { std::filesystem::remove_all(kHookFolder); }
  ~HooksTest() override { std::filesystem::remove_all(kHookFolder); }

  void PutHook(const std::string& script, mode_t mode = 0755) {
    WriteFile(path_, "#!/bin/sh\n" + script, mode);
  }

  void ExpectIgnored(const std::string& fault) {
    SyslogCapture log;
    EXPECT_EQ(HookFault("notify"), fault);
    EXPECT_THAT(log.Texts(), IsEmpty());  // asking is not using
    EXPECT_EQ(RunHook("notify", {"tag"}), std::nullopt);
    EXPECT_FALSE(Exists(scratch_.Path("ran")));
    EXPECT_THAT(log.Texts(), ElementsAre("hooks:# Ignored hook [" + path_ + "]: " + fault));
    EXPECT_EQ(log.Messages().at(0).priority, LOG_ERR);
  }

  Scratch scratch_;
  std::string path_ = std::string(kHookFolder) + "/notify";
  std::string touch_ = "echo \"$0|$*\" >> " + scratch_.Path("ran") + "\n";
};

TEST_F(HooksTest, TheFolderIsTheIntegratorsContract) {
  EXPECT_STREQ(kHookFolder, "/usr/kova/libexec/platform.d");
}

TEST_F(HooksTest, WithoutAHookNothingIsRunOrSaid) {
  SyslogCapture log;
  EXPECT_EQ(RunHook("notify", {"tag"}), std::nullopt);
  std::filesystem::create_directories(kHookFolder);
  EXPECT_EQ(RunHook("notify", {"tag"}), std::nullopt);
  EXPECT_EQ(HookFault("notify"), "");
  EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(HooksTest, AHookIsRunWithItsArgumentsAndItsStatusIsTheResult) {
  PutHook(touch_ + "exit 6\n");
  EXPECT_EQ(HookFault("notify"), "");
  EXPECT_EQ(RunHook("notify", {"a b", ""}), 6);
  EXPECT_EQ(ReadFile(scratch_.Path("ran")), path_ + "|a b \n");
}

TEST_F(HooksTest, ItsOutputIsCollectedOrDropped) {
  PutHook("echo out\n");
  testing::internal::CaptureStdout();
  std::string output;
  EXPECT_EQ(RunHook("notify", {}, &output), 0);
  EXPECT_EQ(output, "out\n");
  EXPECT_EQ(RunHook("notify", {}), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(HooksTest, StandardInputIsEmpty) {
  PutHook("cat; echo end\n");
  std::string output;
  EXPECT_EQ(RunHook("notify", {}, &output), 0);
  EXPECT_EQ(output, "end\n");
}

TEST_F(HooksTest, AHookThatCannotBeRunOrIsKilledIsANegativeResult) {
  PutHook("kill -9 $$\n");
  EXPECT_EQ(RunHook("notify", {}), -1);
  WriteFile(path_, "#!/no/such/interpreter\n", 0755);
  EXPECT_EQ(RunHook("notify", {}), -1);
}

TEST_F(HooksTest, TheLimitsAreTheIntegratorsContract) {
  EXPECT_EQ(kHookLimits.time, std::chrono::seconds(60));
  EXPECT_EQ(kHookLimits.output, 65536U);
  EXPECT_EQ(kDnsHookLimits.time, std::chrono::minutes(10));
  EXPECT_EQ(kDnsHookLimits.output, 65536U);
}

TEST_F(HooksTest, AHookThatTakesTooLongHasFailed) {
  PutHook("echo early; sleep 60 & wait\n");
  const ChildLimits limits{std::chrono::milliseconds(300), kHookLimits.output};
  const auto start = std::chrono::steady_clock::now();
  std::string output;
  for (std::string* wanted : {&output, static_cast<std::string*>(nullptr)}) {
    SyslogCapture log;
    EXPECT_EQ(RunHook("notify", {}, wanted, limits), -1);
    EXPECT_THAT(log.Texts(),
                ElementsAre("hooks:# Ended hook [" + path_ + "]: still running after 1 s"));
    EXPECT_EQ(log.Messages().at(0).priority, LOG_ERR);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(HooksTest, AHookThatWritesTooMuchHasFailed) {
  PutHook("head -c 65536 /dev/zero\n");
  SyslogCapture log;
  std::string output;
  EXPECT_EQ(RunHook("notify", {}, &output), 0);
  EXPECT_EQ(output.size(), 65536U);
  EXPECT_THAT(log.Texts(), IsEmpty());
  for (const char* script : {"head -c 65537 /dev/zero\n", "exec cat /dev/zero\n"}) {
    PutHook(script);
    log.Clear();
    EXPECT_EQ(RunHook("notify", {}, &output), -1);
    EXPECT_THAT(log.Texts(),
                ElementsAre("hooks:# Ended hook [" + path_ + "]: more than 65536 bytes of output"));
  }
}

TEST_F(HooksTest, WhatAHookLeavesRunningCanGoOnWriting) {
  PutHook("(sleep 0.3; echo late && touch " + scratch_.Path("ran") + ") &\n");
  EXPECT_EQ(RunHook("notify", {}), 0);
  usleep(600'000);
  EXPECT_TRUE(Exists(scratch_.Path("ran")));
}

TEST_F(HooksTest, AFileThatOthersCouldChangeIsIgnored) {
  for (const mode_t mode : {0775U, 0757U, 0777U, 0720U}) {
    PutHook(touch_, mode);
    ExpectIgnored("writable by group or others");
  }
}

TEST_F(HooksTest, AFileOfAnotherUserIsIgnored) {
  PutHook(touch_);
  ASSERT_EQ(chown(path_.c_str(), 65534, 0), 0);
  ExpectIgnored("owned by another user");
}

TEST_F(HooksTest, AFileThatIsNotExecutableIsIgnored) {
  PutHook(touch_, 0644);
  ExpectIgnored("not executable");
}

TEST_F(HooksTest, ALinkIsIgnoredWhateverItLeadsTo) {
  WriteFile(std::string(kHookFolder) + "/real", "#!/bin/sh\n" + touch_, 0755);
  ASSERT_EQ(symlink("real", path_.c_str()), 0);
  ExpectIgnored("not a regular file");
}

TEST_F(HooksTest, WhatIsNoFileIsIgnored) {
  std::filesystem::create_directories(path_);
  ExpectIgnored("not a regular file");
  std::filesystem::remove(path_);
  ASSERT_EQ(mkfifo(path_.c_str(), 0755), 0);
  ExpectIgnored("not a regular file");
}

TEST_F(HooksTest, TheEffectiveUsersOwnHookIsGood) {
  PutHook("exit 4\n");
  ASSERT_EQ(chown(path_.c_str(), 65534, 65534), 0);
  EXPECT_EQ(InChild([] {
              if (setuid(65534) != 0) return 1;
              return RunHook("notify", {}).value_or(2);
            }),
            4);
}

TEST_F(HooksTest, RootsHookIsGoodForEveryUser) {
  PutHook("exit 4\n");
  EXPECT_EQ(InChild([] {
              if (setuid(65534) != 0) return 1;
              return RunHook("notify", {}).value_or(2);
            }),
            4);
}

}  // namespace
}  // namespace kova::platform
