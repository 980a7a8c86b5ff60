#include "platform/confined.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/capability.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

#include "host_files.h"
#include "platform/process.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using test::InChild;
using test::Scratch;
using test::SyslogCapture;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr ChildLimits kPlenty{seconds(60), 1 << 20};

// Resident memory of this process, in bytes.
size_t Resident() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<size_t>(usage.ru_maxrss) * 1024;
}

bool HasNoChild() { return waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

TEST(ConfinedTest, WhatTheWorkReturnsComesBack) {
  EXPECT_EQ(RunConfined(kPlenty, [] { return std::string("a\0b\n", 4); }),
            std::string("a\0b\n", 4));
  EXPECT_EQ(RunConfined(kPlenty, [] { return std::string(); }), "");
  const std::string large(500'000, 'x');
  EXPECT_EQ(RunConfined(kPlenty, [&] { return large; }), large);
  EXPECT_TRUE(HasNoChild());
}

TEST(ConfinedTest, TheWorkHasNobodysRights) {
  const auto ids = RunConfined(kPlenty, [] {
    uid_t uid[3];
    gid_t gid[3];
    getresuid(uid, uid + 1, uid + 2);
    getresgid(gid, gid + 1, gid + 2);
    std::string text;
    for (int i = 0; i < 3; ++i) text += std::to_string(uid[i]) + " " + std::to_string(gid[i]) + " ";
    text += std::to_string(getgroups(0, nullptr));
    return text + (setuid(0) == 0 ? " back" : "");
  });
  EXPECT_EQ(ids, "65534 65534 65534 65534 65534 65534 0");
  EXPECT_EQ(geteuid(), 0U);  // ours are as they were
}

TEST(ConfinedTest, TheWorkSeesNoFilesAndCanMakeNone) {
  const Scratch scratch;
  const auto found = RunConfined(kPlenty, [&] {
    std::string text;
    for (const char* path : {"/etc/passwd", "/usr", "/proc", "/dev/null", "../../etc/passwd",
                             "/tmp", "../../../../../../usr/bin/sh"}) {
      if (open(path, O_RDONLY) >= 0) text += std::string(path) + " ";
    }
    if (open("new", O_WRONLY | O_CREAT, 0600) >= 0) text += "made ";
    if (mkdir("/folder", 0700) == 0) text += "folder ";
    return text;
  });
  EXPECT_EQ(found, "");
  EXPECT_THAT(test::ListFolder(scratch.Folder()), IsEmpty());
}

TEST(ConfinedTest, TheWorkHoldsNoDescriptorOfOurs) {
  const int ours = open("/etc/passwd", O_RDONLY);
  const auto open_ones = RunConfined(kPlenty, [] {
    std::string text;
    for (int fd = 0; fd < 1000; ++fd) {
      if (fcntl(fd, F_GETFD) >= 0) text += std::to_string(fd) + " ";
    }
    return text + (write(STDOUT_FILENO, "x", 1) == 1 ? "null" : "");
  });
  close(ours);
  EXPECT_EQ(open_ones, "0 1 2 3 null");
}

TEST(ConfinedTest, TheWorkCanTalkToTheNetwork) {
  const int server = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(bind(server, reinterpret_cast<const sockaddr*>(&address), size), 0);
  ASSERT_EQ(listen(server, 1), 0);
  getsockname(server, reinterpret_cast<sockaddr*>(&address), &size);
  EXPECT_EQ(RunConfined(kPlenty,
                        [&]() -> std::string {
                          const int client = socket(AF_INET, SOCK_STREAM, 0);
                          const auto* peer = reinterpret_cast<const sockaddr*>(&address);
                          return connect(client, peer, size) == 0 ? "connected" : "refused";
                        }),
            "connected");
  close(server);
}

TEST(ConfinedTest, TheWorkStartsNoProgramsAndLooksIntoNoProcess) {
  EXPECT_EQ(RunConfined(kPlenty,
                        []() -> std::string {
                          const pid_t child = fork();
                          if (child == 0) _exit(0);
                          return child < 0 ? "no process" : "a process";
                        }),
            "no process");
}

TEST(ConfinedTest, WhatTakesTooLongIsEnded) {
  const auto start = steady_clock::now();
  EXPECT_EQ(RunConfined({milliseconds(200), 100},
                        [] {
                          pause();
                          return std::string();
                        }),
            std::nullopt);
  EXPECT_LT(steady_clock::now() - start, seconds(10));
  EXPECT_TRUE(HasNoChild());
}

TEST(ConfinedTest, WhatIsTooMuchIsNoAnswerAndTakesNoMemoryHere) {
  const size_t before = Resident();
  EXPECT_EQ(RunConfined({seconds(60), 100}, [] { return std::string(101, 'x'); }), std::nullopt);
  EXPECT_EQ(RunConfined({seconds(60), 100},
                        []() -> std::string {
                          const std::string chunk(4096, 'x');
                          while (write(3, chunk.data(), chunk.size()) > 0) continue;
                          return {};
                        }),
            std::nullopt);
  EXPECT_LT(Resident() - before, 4U << 20);
  EXPECT_TRUE(HasNoChild());
}

TEST(ConfinedTest, ACrashIsNoAnswer) {
  SyslogCapture log;
  for (const int signal : {SIGSEGV, SIGABRT, SIGKILL, SIGXCPU}) {
    EXPECT_EQ(RunConfined(kPlenty,
                          [&] {
                            std::signal(signal, SIG_DFL);
                            kill(getpid(), signal);
                            return std::string("survived");
                          }),
              std::nullopt)
        << signal;
  }
  EXPECT_EQ(RunConfined(kPlenty, []() -> std::string { throw std::runtime_error("x"); }),
            std::nullopt);
  // Half of an answer is none.
  EXPECT_EQ(RunConfined(kPlenty,
                        []() -> std::string {
                          if (write(3, "ok", 2) == 2) _exit(3);
                          return {};
                        }),
            std::nullopt);
  EXPECT_THAT(log.Texts(), IsEmpty());
  EXPECT_TRUE(HasNoChild());
}

// The sanitizers reserve terabytes of addresses; each compiler says in its own way that they are on.
#if defined(__has_feature)
#define KOVA_HAS_FEATURE(feature) __has_feature(feature)
#else
#define KOVA_HAS_FEATURE(feature) 0
#endif
#if !defined(__SANITIZE_ADDRESS__) && !KOVA_HAS_FEATURE(address_sanitizer)
TEST(ConfinedTest, TheMemoryOfTheWorkIsBounded) {
  EXPECT_EQ(RunConfined(kPlenty,
                        []() -> std::string {
                          std::vector<std::unique_ptr<char[]>> blocks;
                          for (size_t megabytes = 0; megabytes < 256; ++megabytes) {
                            blocks.emplace_back(new (std::nothrow) char[1 << 20]);
                            if (blocks.back() == nullptr)
                              return megabytes >= 8 ? "bounded" : "scant";
                          }
                          return "unbounded";
                        }),
            "bounded");
}
#endif

TEST(ConfinedTest, TheChildGoesWithItsParent) {
  const pid_t parent = fork();
  if (parent == 0) {
    // The child holds no descriptor of ours: it is seen by its process group.
    setpgid(0, 0);
    (void)RunConfined(kPlenty, [] {
      pause();
      return std::string();
    });
    _exit(0);
  }
  usleep(300'000);
  EXPECT_EQ(kill(parent, SIGKILL), 0);
  EXPECT_EQ(waitpid(parent, nullptr, 0), parent);
  bool gone = false;
  for (int i = 0; i < 200 && !gone; ++i) {
    gone = kill(-parent, 0) != 0 && errno == ESRCH;
    usleep(20'000);
  }
  EXPECT_TRUE(gone);
}

TEST(ConfinedTest, WhereRightsCannotBeGivenUpNothingIsDone) {
  SyslogCapture log;
  EXPECT_EQ(InChild([] {
              // Root without the right to change its root folder.
              __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
              __user_cap_data_struct data[2]{};
              if (syscall(SYS_capget, &header, data) != 0) return 2;
              data[0].effective &= ~(1U << CAP_SYS_CHROOT);
              if (syscall(SYS_capset, &header, data) != 0) return 3;
              return RunConfined(kPlenty, [] { return std::string("done"); }) ? 4 : 0;
            }),
            0);
  EXPECT_THAT(log.Texts(), ElementsAre("confined:# Failed to give up rights, nothing done"));
}

TEST(ConfinedTest, WithoutRootsRightsThereIsNothingToGiveUp) {
  EXPECT_EQ(InChild([] {
              if (setresgid(12, 12, 12) != 0 || setresuid(12, 12, 12) != 0) return 1;
              const auto uid = RunConfined(kPlenty, [] { return std::to_string(getuid()); });
              return uid == "12" ? 0 : 2;
            }),
            0);
}

}  // namespace
}  // namespace kova::platform
