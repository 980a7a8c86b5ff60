#include "platform/process.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "host_files.h"
#include "platform/error.h"
#include "platform/file_writer.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using test::InChild;
using test::Scratch;
using test::SyslogCapture;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kShell[] = "/bin/sh";

int RunAndCapture(const std::string& program, const KovaArgs& args, std::string& output) {
  return RunWithin({kNoTimeLimit, 1 << 20}, program, args, &output);
}

TEST(ProcessTest, TheExitStatusIsTheResult) {
  EXPECT_EQ(KLIBCExec("/bin/true", {}), 0);
  EXPECT_EQ(KLIBCExec(kShell, {"-c", "exit 7"}), 7);
  EXPECT_EQ(errno, 0);
  EXPECT_EQ(KLIBCExec(kShell, {"-c", "exit 255"}), 255);
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecScript, {"-c", "exit 3"}), 3);
  EXPECT_EQ(KLIBCExecv({kShell, "-c", "exit 4"}, 0), 4);
}

TEST(ProcessTest, AKilledChildIsANegativeResult) {
  EXPECT_LT(KLIBCExec(kShell, {"-c", "kill -9 $$"}), 0);
  EXPECT_EQ(KLIBCErrGet(), EINTR);
}

TEST(ProcessTest, AProgramThatCannotBeRunIsANegativeResult) {
  const Scratch scratch;
  WriteFile(scratch.Path("plain"), "#!/bin/sh\n", 0644);
  WriteFile(scratch.Path("textual"), "echo not by any shell\n", 0755);
  const std::vector<std::pair<std::string, int>> programs = {{"/bin/no-such-program", ENOENT},
                                                             {scratch.Path("plain"), EACCES},
                                                             {scratch.Path("textual"), ENOEXEC},
                                                             {scratch.Folder(), EACCES},
                                                             {"true", EINVAL},
                                                             {"", EINVAL}};
  for (const auto& [program, error] : programs) {
    EXPECT_LT(KLIBCExec(program, {}), 0) << program;
    EXPECT_EQ(KLIBCErrGet(), error) << program;
    EXPECT_LT(KLIBCExecl(program, kKovaExecTool, {}), 0) << program;
    EXPECT_EQ(KLIBCErrGet(), error) << program;
    std::string output = "before";
    EXPECT_LT(RunAndCapture(program, {}, output), 0) << program;
    EXPECT_EQ(KLIBCErrGet(), error) << program;
    EXPECT_EQ(output, "");
  }
  EXPECT_LT(KLIBCExecv({}, 1), 0);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
}

TEST(ProcessTest, ArgumentsArriveAsTheyAre) {
  std::string output;
  const KovaArgs args = {"-c", R"(printf '[%s]' "$@")", "sh", "a b", "", "$HOME;`id`", "*", "'\""};
  EXPECT_EQ(RunAndCapture(kShell, args, output), 0);
  EXPECT_EQ(output, "[a b][][$HOME;`id`][*]['\"]");
}

TEST(ProcessTest, AnArgumentThatWouldArriveCutIsRefused) {
  EXPECT_LT(KLIBCExec("/bin/true", {std::string("a\0b", 3)}), 0);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
}

TEST(ProcessTest, TheEnvironmentIsPassedOn) {
  setenv("KOVA_TEST_WORD", "value", 1);
  std::string output;
  EXPECT_EQ(RunAndCapture(kShell, {"-c", "echo $KOVA_TEST_WORD"}, output), 0);
  EXPECT_EQ(output, "value\n");
}

TEST(ProcessTest, StandardOutputNeverReachesOurs) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(KLIBCExec("/bin/echo", {"leak"}), 0);
  EXPECT_EQ(KLIBCExecl("/bin/echo", kKovaExecScript, {"leak"}), 0);
  EXPECT_EQ(KLIBCExecl("/bin/echo", kKovaExecTool, {"leak"}), 0);
  EXPECT_EQ(KLIBCExecv({"/bin/echo", "leak"}, 1), 0);
  std::string output;
  EXPECT_EQ(RunAndCapture("/bin/echo", {"kept"}, output), 0);
  EXPECT_EQ(output, "kept\n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(ProcessTest, StandardInputIsEmpty) {
  std::string output;
  EXPECT_EQ(RunAndCapture("/bin/cat", {}, output), 0);
  EXPECT_EQ(output, "");
  EXPECT_EQ(RunAndCapture("/bin/readlink", {"/proc/self/fd/0"}, output), 0);
  EXPECT_EQ(output, "/dev/null\n");
}

TEST(ProcessTest, NoOtherDescriptorIsInherited) {
  const int ours = open("/dev/null", O_RDONLY);  // not close-on-exec
  const int high = fcntl(ours, F_DUPFD, 500);
  std::string output;
  EXPECT_EQ(RunAndCapture("/bin/ls", {"/proc/self/fd"}, output), 0);
  EXPECT_EQ(output, "0\n1\n2\n3\n");  // 3 is the listing itself
  close(ours);
  close(high);
}

TEST(ProcessTest, SignalsAreAtTheirDefaultsInTheChild) {
  const auto old_pipe = signal(SIGPIPE, SIG_IGN);
  const auto old_int = signal(SIGINT, SIG_IGN);
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  sigprocmask(SIG_BLOCK, &blocked, &before);
  std::string output;
  const int result =
      RunAndCapture("/bin/grep", {"-E", "Sig(Blk|Ign)", "/proc/self/status"}, output);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  signal(SIGPIPE, old_pipe);
  signal(SIGINT, old_int);
  EXPECT_EQ(result, 0);
  // Signals 32 and 33 are the C library's own and none of the child's business.
  EXPECT_THAT(output, testing::MatchesRegex(
                          "SigBlk:\t0000000000000000\nSigIgn:\t0000000[01][08]0000000\n"));
}

TEST(ProcessTest, TheStatusIsKnownAlsoWhereChildrenAreIgnored) {
  const auto before = signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(KLIBCExec(kShell, {"-c", "exit 5"}), 5);
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecTool, {"-c", "exit 0"}), 0);
  std::string output;
  EXPECT_EQ(RunAndCapture(kShell, {"-c", "exit 6"}, output), 6);
  EXPECT_EQ(signal(SIGCHLD, before), SIG_IGN);  // and it is ignored again afterwards
}

TEST(ProcessTest, SignalsDoNotCutTheWaiting) {
  struct sigaction handler {};
  struct sigaction before {};
  handler.sa_handler = [](int) {};  // without SA_RESTART
  sigaction(SIGALRM, &handler, &before);
  const itimerval often{{0, 5000}, {0, 5000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  std::string output;
  EXPECT_EQ(KLIBCExec("/bin/sleep", {"0.2"}), 0);
  EXPECT_EQ(RunAndCapture(kShell, {"-c", "sleep 0.2; echo done"}, output), 0);
  const itimerval never{};
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(output, "done\n");
}

// Closes those of 0, 1, 2 whose bit is set and runs children of every kind.
int RunWithClosed(int mask) {
  for (int fd = 0; fd <= 2; ++fd) {
    if ((mask >> fd & 1) != 0) close(fd);
  }
  std::string output;
  if (RunAndCapture("/bin/ls", {"/proc/self/fd"}, output) != 0) return 1;
  if (output != "0\n1\n2\n3\n") return 2;
  if (RunAndCapture("/bin/readlink", {"/proc/self/fd/0"}, output) != 0) return 3;
  if (output != "/dev/null\n") return 4;
  if (KLIBCExecl(kShell, kKovaExecTool, {"-c", "echo noise >&2; exit 9"}) != 9) return 5;
  if (KLIBCExec(kShell, {"-c", "test $(ls /proc/self/fd | wc -l) = 4"}) != 0) return 6;
  return 0;
}

TEST(ProcessTest, ClosedStandardDescriptorsHereDoNotConfuseTheChild) {
  for (int mask = 1; mask < 8; ++mask) {
    SyslogCapture log;
    EXPECT_EQ(InChild([&] { return RunWithClosed(mask); }), 0) << mask;
    EXPECT_THAT(log.Texts(), ElementsAre("process:# /bin/sh failed [9]: noise")) << mask;
  }
}

TEST(ProcessTest, AProgramStartsWithItsStandardDescriptorsOpen) {
  for (int mask = 0; mask < 8; ++mask) {
    EXPECT_EQ(InChild([&] {
                for (int fd = 0; fd <= 2; ++fd) {
                  if ((mask >> fd & 1) != 0) close(fd);
                }
                PrepareProcess();
                for (int fd = 0; fd <= 2; ++fd) {
                  if (fcntl(fd, F_GETFD) != 0) return 1 + fd;
                }
                return 0;
              }),
              0)
        << mask;
  }
}

TEST(ProcessTest, AFileBeyondTheSizeLimitIsAFailedWriteNotASignal) {
  const Scratch scratch;
  EXPECT_EQ(InChild([&] {
              PrepareProcess();
              const rlimit limit{1000, 1000};
              setrlimit(RLIMIT_FSIZE, &limit);
              return ReplaceFile(scratch.Path("file"), std::string(2000, 'x'), 0600);
            }),
            EFBIG);
  EXPECT_EQ(InChild([] {
              PrepareProcess();
              return KLIBCExec(kShell, {"-c", "kill -XFSZ $$"}) == -1 ? 0 : 1;
            }),
            0);  // children have it as ever
}

TEST(ProcessTest, NoDescriptorIsLeftOpenHere) {
  const auto count = [] { return test::ListFolder("/proc/self/fd").size(); };
  const size_t before = count();
  std::string output;
  KLIBCExecl(kShell, kKovaExecTool, {"-c", "echo x >&2"});
  RunAndCapture("/bin/echo", {"x"}, output);
  RunAndCapture("/bin/no-such-program", {}, output);
  EXPECT_EQ(count(), before);
}

TEST(ProcessTest, WhatARunStartsFindsTheSbinFolders) {
  const std::string before = getenv("PATH");
  for (const char* path : {"/usr/bin:/bin", "", "/tmp"}) {
    setenv("PATH", path, 1);
    std::string output;
    EXPECT_EQ(RunAndCapture(kShell, {"-c", "env | grep ^PATH=; command -v ip"}, output), 0);
    EXPECT_THAT(output, testing::MatchesRegex("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:"
                                              "/usr/bin:/sbin:/bin\n/.*sbin/ip\n"));
  }
  unsetenv("PATH");
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecScript, {"-c", "test $PATH = " + std::string(kChildPath)}),
            0);
  setenv("PATH", before.c_str(), 1);
}

TEST(ProcessTest, StandardErrorOfAToolIsToldOnlyWhenItFails) {
  SyslogCapture log;
  testing::internal::CaptureStderr();
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecTool, {"-c", "echo fine >&2"}), 0);
  EXPECT_EQ(KLIBCExecv({kShell, "-c", "echo fine >&2"}, 1), 0);
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecTool, {"-c", "echo first >&2; echo last >&2; exit 2"}), 2);
  EXPECT_EQ(KLIBCExecv({kShell, "-c", "printf 'why\\n\\n  \\n' >&2; exit 1"}, 1), 1);
  EXPECT_THAT(log.Texts(), ElementsAre("process:# /bin/sh failed [2]: last",
                                       "process:# /bin/sh failed [1]: why"));
  EXPECT_EQ(log.Messages().at(0).priority, LOG_ERR);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(ProcessTest, WhatAToolSaysIsDataAndOneLine) {
  SyslogCapture log;
  EXPECT_EQ(
      KLIBCExecl(kShell, kKovaExecTool, {"-c", R"(printf 'a%%s%%n\033[31m\tb\177' >&2; exit 1)"}),
      1);
  EXPECT_THAT(log.Texts(), ElementsAre("process:# /bin/sh failed [1]: a%s%n?[31m?b?"));
  log.Clear();
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecTool,
                       {"-c", "head -c 100000 /dev/zero | tr '\\0' x >&2; exit 1"}),
            1);
  EXPECT_THAT(log.Texts(), ElementsAre("process:# /bin/sh failed [1]: " + std::string(512, 'x')));
}

TEST(ProcessTest, AKilledToolIsToldAndKeepsItsErrorTriple) {
  SyslogCapture log;
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecTool, {"-c", "echo dying >&2; kill -9 $$"}), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_THAT(log.Texts(), ElementsAre("process:# /bin/sh failed [-1]: dying"));
}

TEST(ProcessTest, StandardErrorOfAScriptIsOurs) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(KLIBCExecl(kShell, kKovaExecScript, {"-c", "echo script >&2"}), 0);
  EXPECT_EQ(KLIBCExec(kShell, {"-c", "echo program >&2"}), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "script\nprogram\n");
}

}  // namespace
}  // namespace kova::platform
