// Deployment killed at every point that a tool run separates: before the tool, half way through its
// work, and after it.
#include <sys/wait.h>
#include <unistd.h>

#include "archive/deploy.h"
#include "archive_fixture.h"
#include "platform/clock.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::Exists;
using test::Folder;
using test::List;
using test::Names;
using test::Read;
using test::ReplacedTool;
using test::ServiceObject;
using test::Write;

// Counts the tool runs; at the one that /usr/kova/kill names it kills the program that ran it.
constexpr char kKiller[] = R"(
read -r when which < /usr/kova/kill
echo >> /usr/kova/count
count=$(wc -l < /usr/kova/count)
[ $count = $which ] || exec $REAL "$@"
if [ $when = after ]; then
  $REAL "$@"
elif [ $when = half ] && [ $1 = -rf ]; then
  /usr/bin/find "$2" -type f | /usr/bin/head -n 2 | while read -r f; do /usr/bin/unlink "$f"; done
elif [ $when = half ] && [ $1 = -arp ]; then
  /usr/bin/mkdir -p "$3"; echo -n "half" > "$3/cert.pem"
elif [ $when = half ] && [ $1 = -f ]; then
  echo -n "half" > "$3"
fi
kill -9 $PPID
)";

class KilledToolTest : public ArchiveTest, public testing::WithParamInterface<const char*> {
 protected:
  KilledToolTest() {
    AddHook("service-running", "exit 1");
    for (const char* id : {"one", "two"}) AddCertificate(id);
    Write(Folder("one/chain.pem"), "one chain.pem\n");
  }

  static Status Deploy(const std::string& id) {
    platform::SetSleeper([](std::chrono::milliseconds) {});
    return RegisterAndDeploy(id, List({ServiceObject("mail", "smtp")}), "", kActionRedeploy);
  }

  // The certificate whose whole set the folder holds, or "".
  static std::string SetIn(const std::string& folder) {
    for (const std::string id : {"one", "two"}) {
      bool whole = Names(folder) == Names(Folder(id));
      for (const std::string& name : Names(folder)) {
        whole = whole && Read(folder + "/" + name) == id + " " + name + "\n";
      }
      if (whole) return id;
    }
    return "";
  }

  const std::string folder_ = "/usr/kova/etc/certificate/mail/smtp";
};

TEST_P(KilledToolTest, LosesNeitherTheOldNorTheNewSet) {
  constexpr int kToolRuns = 8;  // 3 copies, 3 removals and a copy of the move, what is left over
  int killed = 0;
  for (int which = 1; which <= kToolRuns; ++which) {
    for (const std::string old : {"one", "two"}) {
      const std::string next = old == "one" ? "two" : "one";
      test::RemoveAll("/usr/kova/etc/certificate/mail");
      ASSERT_TRUE(Deploy(old));
      Write("/usr/kova/kill", GetParam() + std::string(" ") + std::to_string(which) + "\n");
      test::RemoveAll("/usr/kova/count");
      int status = 0;
      {
        const ReplacedTool rm("rm", kKiller);
        const ReplacedTool cp("cp", kKiller);
        const pid_t run = fork();
        if (run == 0) _exit(Deploy(next) ? 0 : 1);
        waitpid(run, &status, 0);
        usleep(20000);  // the killer itself ends
      }
      if (WIFSIGNALED(status)) ++killed;
      const std::string in_place = SetIn(folder_);
      const std::string in_backup = SetIn(folder_ + ".bak");
      ASSERT_TRUE(in_place == old || in_place == next || in_backup == old)
          << GetParam() << " " << which << ": " << old << " to " << next;
      // The next run, which fails for another reason, loses nothing either.
      {
        const ReplacedTool cp("cp", "exit 1");
        ASSERT_FALSE(Deploy(next));
      }
      ASSERT_EQ(SetIn(folder_), in_place.empty() ? old : in_place) << GetParam() << " " << which;
      ASSERT_TRUE(Deploy(next));
      ASSERT_EQ(SetIn(folder_), next);
      ASSERT_EQ(Names("/usr/kova/etc/certificate/mail"), std::vector<std::string>{"smtp"});
    }
  }
  EXPECT_GE(killed, 2 * 7);
}

INSTANTIATE_TEST_SUITE_P(Moments, KilledToolTest, testing::Values("before", "half", "after"));

}  // namespace
}  // namespace kova::cert_archive
