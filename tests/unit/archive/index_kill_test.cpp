// The index under fire: killed writers and crowds of them.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "archive/index.h"
#include "archive/service_object.h"
#include "archive_fixture.h"
#include "base/json.h"

namespace kova::cert_archive {
namespace {

using test::ArchiveTest;
using test::kInfo;
using test::Read;
using test::ServiceObject;
using test::Write;

class IndexUnderFireTest : public ArchiveTest {};

// Version `n` of a document of some size, which shows whether it is whole and which one it is.
Json::Value Document(int n) {
  Json::Value info;
  for (int i = 0; i < 150; ++i) {
    info["id" + std::to_string(i)]["services"] = test::List({ServiceObject("mail", "smtp")});
    info["id" + std::to_string(i)]["version"] = n;
  }
  return info;
}

[[noreturn]] void RewriteForEver() {
  while (true) {
    (void)EditIndex(kUpdateTimeout, [](Json::Value& info) {
      info = Document(info["id0"]["version"].asInt() + 1);
      return IndexEdit::kWrite;
    });
  }
}

TEST_F(IndexUnderFireTest, IsOldOrNewButAlwaysWholeAfterAKill) {
  Write(kInfo, JsonStyledText(Document(0)));
  std::mt19937 random(20240229);
  std::uniform_real_distribution<double> part(0, 1);
  double longest = 12000;  // microseconds; follows the machine, so that some writes get through
  int latest = 0;
  for (int round = 0; round < 150; ++round) {
    const pid_t writer = fork();
    if (writer == 0) RewriteForEver();
    usleep(static_cast<useconds_t>(part(random) * longest));
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    Json::Value info;
    ASSERT_TRUE(JsonFromText(Read(kInfo), info)) << "round " << round;
    const int version = info["id0"]["version"].asInt();
    ASSERT_EQ(info, Document(version)) << "round " << round;
    ASSERT_GE(version, latest);
    longest *= version > latest ? 0.9 : 1.1;
    latest = version;
  }
  EXPECT_GT(latest, 20) << "the writers hardly ever got to write";
  // What the last killed writer left neither blocks nor confuses the next one.
  ASSERT_TRUE(EditIndex(kUpdateTimeout, [](Json::Value& info) {
    info["after"] = true;
    return IndexEdit::kWrite;
  }));
  EXPECT_EQ(test::Names(test::kRoot), std::vector<std::string>{"INFO"});
}

TEST_F(IndexUnderFireTest, ReadersNeverSeeHalfADocument) {
  Write(kInfo, JsonStyledText(Document(0)));
  const pid_t writer = fork();
  if (writer == 0) RewriteForEver();
  for (int i = 0; i < 150; ++i) {
    Json::Value info;
    ASSERT_TRUE(ReadIndexObject(info));
    ASSERT_EQ(info, Document(info["id0"]["version"].asInt()));
  }
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
}

TEST_F(IndexUnderFireTest, EightWritersLoseNothing) {
  constexpr int kWriters = 8;
  constexpr int kEntries = 25;
  Write(kInfo, R"({"abc": {"services": []}})");
  std::vector<pid_t> writers;
  for (int w = 0; w < kWriters; ++w) {
    const pid_t writer = fork();
    if (writer != 0) {
      writers.push_back(writer);
      continue;
    }
    bool done = true;
    for (int i = 0; i < kEntries; ++i) {
      const Json::Value object =
          ServiceObject("writer" + std::to_string(w), "entry" + std::to_string(i));
      done = EditIndex(kUpdateTimeout,
                       [&](Json::Value& info) {
                         UpdateServiceList(info["abc"]["services"], object, ListUpdate::kAppend);
                         return IndexEdit::kWrite;
                       }) &&
             done;
    }
    _exit(done ? 0 : 1);
  }
  for (const pid_t writer : writers) {
    int status = -1;
    waitpid(writer, &status, 0);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(test::Services("abc").size(), static_cast<unsigned>(kWriters * kEntries));
}

}  // namespace
}  // namespace kova::cert_archive
