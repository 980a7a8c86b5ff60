#include "acme/next_key.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "acme/account_store.h"
#include "base/json.h"
#include "error_text.h"
#include "host_files.h"
#include "syslog_capture.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::StartsWith;

Json::Value Key(const std::string& modulus) {
  Json::Value key(Json::objectValue);
  key["n"] = modulus;
  return key;
}

class NextKeyTest : public ::testing::Test {
 protected:
  NextKeyTest() {
    ResetHost();
    Json::Value info(Json::objectValue);
    info["contact"] = "me@host.example";
    folder_ = CreateAccountFolder("client_v2", info, Key("old"));
  }
  ~NextKeyTest() override { umask(022); }

  [[nodiscard]] std::string Stored(const char* name) const {
    Json::Value key;
    return JsonFromText(ReadFile(folder_ + "/" + name), key) ? TextMember(key, "n") : "none";
  }

  std::string folder_;
  SyslogCapture syslog_;
};

TEST_F(NextKeyTest, StandsPrivatelyBesideTheKey) {
  EXPECT_FALSE(HasNextKey(folder_));
  umask(0);
  WriteNextKey(folder_, Key("new"));
  EXPECT_TRUE(HasNextKey(folder_));
  EXPECT_EQ(ModeOf(NextKeyPath(folder_)), 0600U);
  EXPECT_EQ(Stored("private_key.json"), "old");
  Json::Value key;
  ASSERT_TRUE(ReadNextKey(folder_, key));
  EXPECT_EQ(key, Key("new"));
}

TEST_F(NextKeyTest, TakesThePlaceOfTheKey) {
  WriteNextKey(folder_, Key("new"));
  CommitNextKey(folder_, Key("new"));
  EXPECT_EQ(Stored("private_key.json"), "new");
  EXPECT_EQ(ModeOf(AccountKeyPath(folder_)), 0600U);
  EXPECT_THAT(ListFolder(folder_), ElementsAre("info.json", "private_key.json"));
}

TEST_F(NextKeyTest, MayHaveBeenPutInPlaceByAnotherProcess) {
  WriteNextKey(folder_, Key("new"));
  CommitNextKey(folder_, Key("new"));
  CommitNextKey(folder_, Key("new"));
  EXPECT_EQ(Stored("private_key.json"), "new");
}

TEST_F(NextKeyTest, OfAnotherProcessIsNotPutInPlace) {
  WriteNextKey(folder_, Key("theirs"));
  EXPECT_THAT(ErrorOf([&] { CommitNextKey(folder_, Key("ours")); }),
              StartsWith("202 client_v2: [" + folder_ + "] was changed by another process"));
  EXPECT_EQ(Stored("private_key.json"), "old");
  EXPECT_EQ(Stored("next_key.json"), "theirs");
}

TEST_F(NextKeyTest, ThatIsNoKeyIsNeverTheSame) {
  WriteFile(NextKeyPath(folder_), "{}");
  EXPECT_THAT(ErrorOf([&] { CommitNextKey(folder_, Json::Value(Json::objectValue)); }),
              StartsWith("202 client_v2: "));
  EXPECT_EQ(Stored("private_key.json"), "old");
}

TEST_F(NextKeyTest, WithoutTheLockNothingIsPutInPlace) {
  WriteNextKey(folder_, Key("new"));
  std::filesystem::remove_all("/run/kova-account.lock");
  std::filesystem::create_directory("/run/kova-account.lock");
  EXPECT_EQ(ErrorOf([&] { CommitNextKey(folder_, Key("new")); }),
            "202 client_v2: cannot lock [/run/kova-account.lock]: Invalid argument");
  std::filesystem::remove("/run/kova-account.lock");
  EXPECT_EQ(Stored("private_key.json"), "old");
  EXPECT_THAT(syslog_.Texts(),
              ElementsAre("client_v2:# Lock list file [/run/kova-account.lock] failed",
                          "client_v2:# cannot lock [/run/kova-account.lock]: Invalid argument"));
}

TEST_F(NextKeyTest, ThatCannotBePutInPlaceIsTold) {
  WriteNextKey(folder_, Key("new"));
  std::filesystem::remove(AccountKeyPath(folder_));
  std::filesystem::create_directories(AccountKeyPath(folder_) + "/in the way");
  EXPECT_EQ(ErrorOf([&] { CommitNextKey(folder_, Key("new")); }),
            "202 client_v2: cannot replace [" + AccountKeyPath(folder_) + "]: Is a directory");
}

TEST_F(NextKeyTest, IsDroppedWhenItIsTheOne) {
  WriteNextKey(folder_, Key("theirs"));
  DropNextKey(folder_, Key("ours"));
  EXPECT_TRUE(HasNextKey(folder_));
  DropNextKey(folder_, Key("theirs"));
  EXPECT_FALSE(HasNextKey(folder_));
  EXPECT_EQ(Stored("private_key.json"), "old");
}

TEST_F(NextKeyTest, ThatIsNoObjectCannotBeRead) {
  Json::Value key;
  EXPECT_FALSE(ReadNextKey(folder_, key));
  for (const char* text : {"", "{", "[]", "null"}) {
    WriteFile(NextKeyPath(folder_), text);
    EXPECT_FALSE(ReadNextKey(folder_, key)) << text;
  }
}

}  // namespace
}  // namespace kova::test
