// The stored accounts: how one is put there, listed, found and taken out.
#include "acme/account_store.h"

#include <glob.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <syslog.h>

#include <filesystem>

#include "base/json.h"
#include "error_text.h"
#include "failing_glob.h"
#include "host_files.h"
#include "small_disk.h"
#include "syslog_capture.h"

namespace kova::test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kProgram[] = "/usr/kova/etc/letsencrypt";
constexpr char kDirectory[] = "https://ca.example/directory";
constexpr char kContact[] = "a@b.example";

Json::Value Info(const std::string& url = "https://ca.example/account/1") {
  Json::Value info(Json::objectValue);
  info["version"] = 2;
  info["directory"] = kDirectory;
  info["contact"] = kContact;
  info["account_url"] = url;
  return info;
}

Json::Value Key() {
  Json::Value key(Json::objectValue);
  key["kty"] = "RSA";
  key["d"] = std::string(2000, 'd');
  return key;
}

std::string Path(const std::string& name) { return std::string(kAccountStore) + "/" + name; }

class AccountStore : public ::testing::Test {
 protected:
  AccountStore() { ResetHost(); }
  ~AccountStore() override {
    umask(022);
    forced_glob_result = 0;
  }

  static std::string Create() { return CreateAccountFolder("client_v2", Info(), Key()); }

  // Puts an account there as another run would have left it; the result is its folder.
  static std::string Put(const std::string& name, const std::string& info) {
    const std::string folder = Path(name);
    WriteFile(folder + "/info.json", info);
    return folder;
  }

  static std::string Find(const std::string& directory = kDirectory,
                          const std::string& contact = kContact) {
    return FirstAccount(ListAccounts(), directory, contact, 2,
                        [](const std::string&, const Json::Value&) { return true; });
  }

  SyslogCapture syslog_;
};

TEST_F(AccountStore, HoldsAnAccountAsAFolderOfTwoFiles) {
  const std::string folder = Create();
  EXPECT_EQ(fs::path(folder).parent_path(), kAccountStore);
  EXPECT_EQ(fs::path(folder).filename().string().size(), 6U);
  EXPECT_THAT(ListFolder(folder), ElementsAre("info.json", "private_key.json"));
  EXPECT_EQ(ReadFile(folder + "/info.json"),
            "{\n"
            "   \"account_url\" : \"https://ca.example/account/1\",\n"
            "   \"contact\" : \"a@b.example\",\n"
            "   \"directory\" : \"https://ca.example/directory\",\n"
            "   \"version\" : 2\n"
            "}\n");
  EXPECT_EQ(ReadFile(folder + "/private_key.json"),
            "{\n   \"d\" : \"" + std::string(2000, 'd') + "\",\n   \"kty\" : \"RSA\"\n}\n");
}

TEST_F(AccountStore, HasTheSameModesUnderEveryUmask) {
  for (const mode_t mask : {0022U, 0U, 0077U, 0777U}) {
    ResetHost();
    umask(mask);
    const std::string folder = Create();
    umask(022);
    EXPECT_EQ(ModeOf(kProgram), 0700U) << mask;
    EXPECT_EQ(ModeOf(kAccountStore), 0700U) << mask;
    EXPECT_EQ(ModeOf(folder), 0700U) << mask;
    EXPECT_EQ(ModeOf(folder + "/info.json"), 0600U) << mask;
    EXPECT_EQ(ModeOf(folder + "/private_key.json"), 0600U) << mask;
  }
}

TEST_F(AccountStore, LeavesTheModesOfFoldersThatExist) {
  fs::create_directories(kAccountStore);
  chmod(kProgram, 0711);
  chmod(kAccountStore, 0750);
  Create();
  EXPECT_EQ(ModeOf(kProgram), 0711U);
  EXPECT_EQ(ModeOf(kAccountStore), 0750U);
}

TEST_F(AccountStore, GivesEachAccountItsOwnFolder) {
  const std::string first = Create();
  const std::string second = Create();
  EXPECT_NE(first, second);
  EXPECT_EQ(ListFolder(kAccountStore).size(), 2U);
}

struct Obstacle {
  const char* path;  // a file where a folder should be
  const char* text;
  int reason;
};

TEST_F(AccountStore, SaysWhichFolderCannotBeMade) {
  const Obstacle obstacles[] = {
      {"/usr/kova/etc", "Failed to create folder for let's encrypt.", ENOTDIR},
      {kProgram, "Failed to create folder for account.", ENOTDIR},
      {kAccountStore, "Failed to create folder for account item.", ENOTDIR}};
  for (const Obstacle& obstacle : obstacles) {
    ResetHost();
    fs::remove_all(obstacle.path);
    WriteFile(obstacle.path, "a file");
    syslog_.Clear();
    EXPECT_EQ(ErrorOf(Create), std::string("202 client_v2: ") + obstacle.text);
    EXPECT_THAT(syslog_.Texts(), ElementsAre(std::string("client_v2:# ") + obstacle.text + " [" +
                                             std::to_string(obstacle.reason) + "]"));
    EXPECT_EQ(syslog_.Messages()[0].priority, LOG_ERR);
  }
}

TEST_F(AccountStore, NamesTheProtocolThatCouldNotStore) {
  fs::remove_all("/usr/kova/etc");
  EXPECT_EQ(ErrorOf([] { CreateAccountFolder("client_v1", Info(), Key()); }),
            "202 client_v1: Failed to create folder for let's encrypt.");
  EXPECT_THAT(syslog_.Texts(),
              ElementsAre("client_v1:# Failed to create folder for let's encrypt. [2]"));
}

TEST_F(AccountStore, KeepsNothingOfAnAccountWhoseKeyDoesNotFit) {
  const SmallDisk disk(kAccountStore, "size=4k,nr_inodes=3");  // itself, the new folder, its mark
  const std::string error = ErrorOf(Create);
  EXPECT_TRUE(error.starts_with(std::string("202 utils: Failed to write ") + kAccountStore + "/"))
      << error;
  EXPECT_TRUE(error.ends_with("/private_key.json: No space left on device")) << error;
  EXPECT_THAT(ListFolder(kAccountStore), IsEmpty());
}

// The key goes first and takes all the room: a folder counts as an account as soon as it holds
// info.json, which must therefore come last.
TEST_F(AccountStore, KeepsNothingOfAnAccountWhoseRecordDoesNotFit) {
  const SmallDisk disk(kAccountStore, "size=4k");
  const std::string error = ErrorOf(Create);
  EXPECT_TRUE(error.ends_with("/info.json: No space left on device")) << error;
  EXPECT_THAT(ListFolder(kAccountStore), IsEmpty());
}

TEST_F(AccountStore, FindsNothingWhereThereIsNothing) {
  EXPECT_EQ(Find(), "");
  fs::create_directories(kAccountStore);
  EXPECT_EQ(Find(), "");
}

TEST_F(AccountStore, FindsTheAccountOfDirectoryAndContact) {
  const std::string folder = Create();
  EXPECT_EQ(Find(), folder + "/");
  EXPECT_EQ(Find("https://other.example/directory", kContact), "");
  EXPECT_EQ(Find(std::string(kDirectory) + "/", kContact), "");
  EXPECT_EQ(Find("https://CA.example/directory", kContact), "");
  EXPECT_EQ(Find(kDirectory, "A@b.example"), "");
  EXPECT_EQ(Find(kDirectory, "mailto:a@b.example"), "");
  EXPECT_EQ(Find(kDirectory, ""), "");
}

TEST_F(AccountStore, PrefersTheFolderWhoseNameSortsFirst) {
  const std::string info = JsonStyledText(Info());
  Put("zzzzzz", info);
  Put("aaaaaa", JsonStyledText(Info("https://ca.example/account/2")));
  Put("AAAAAA", R"({"version": 2})");
  EXPECT_EQ(Find(), Path("aaaaaa/"));
}

TEST_F(AccountStore, PassesOverAccountsThatDoNotFit) {
  for (const char* version : {"1", "\"2\"", "3", "2.5", "null", "true", "[2]"}) {
    Json::Value info = Info();
    ASSERT_TRUE(JsonFromText(version, info["version"]));
    Put("one", JsonStyledText(info));
    EXPECT_EQ(Find(), "") << version;
  }
  for (const char* member : {"directory", "contact", "version"}) {
    Json::Value info = Info();
    info.removeMember(member);
    Put("one", JsonStyledText(info));
    EXPECT_EQ(Find(), "") << member;
    info[member] = Json::Value(Json::arrayValue);
    Put("one", JsonStyledText(info));
    EXPECT_EQ(Find(), "") << member;
  }
}

TEST_F(AccountStore, PassesOverWhatIsNoAccount) {
  fs::create_directories(Path("aaempty"));
  fs::create_directories(Path("aafolder/info.json"));
  WriteFile(Path("aafile"), JsonStyledText(Info()));
  WriteFile(Path("aakey/private_key.json"), JsonStyledText(Key()));
  Put("abroken", R"({"version": 2, )");
  Put("alist", "[" + JsonStyledText(Info()) + "]");
  Put("anull", "null");
  Put("atext", "\"version\"");
  Put("azero", "");
  Put(".hidden", JsonStyledText(Info()));
  EXPECT_EQ(Find(), "");
  const std::string folder = Put("b", JsonStyledText(Info()));
  EXPECT_EQ(Find(), folder + "/");
}

TEST_F(AccountStore, ThatCannotBeListedThrowsAText) {
  forced_glob_result = GLOB_NOSPACE;
  EXPECT_EQ(ErrorOf([] { Find(); }), "text: glob error");
  EXPECT_EQ(ErrorOf([] { ListAccounts(); }), "text: glob error");
}

TEST_F(AccountStore, ListsItsFoldersSortedAndWithASlash) {
  for (const char* name : {"b", "c", "a"}) Put(name, "{}");
  EXPECT_THAT(ListAccounts(), ElementsAre(Path("a/"), Path("b/"), Path("c/")));
}

TEST_F(AccountStore, OneThatCannotBeUsedIsPassedOver) {
  Put("a", JsonStyledText(Info()));
  Put("b", JsonStyledText(Info()));
  std::vector<std::string> asked;
  const auto is_usable = [&](const std::string& folder, const Json::Value& info) {
    EXPECT_EQ(info, Info());
    asked.push_back(folder);
    return folder == Path("b/");
  };
  EXPECT_EQ(FirstAccount(ListAccounts(), kDirectory, kContact, 2, is_usable), Path("b/"));
  EXPECT_THAT(asked, ElementsAre(Path("a/"), Path("b/")));
  asked.clear();
  EXPECT_EQ(FirstAccount(ListAccounts(), kDirectory, "you@host.example", 2, is_usable), "");
  EXPECT_THAT(asked, IsEmpty()) << "others are not looked at";
}

TEST_F(AccountStore, AKeyIsAnObject) {
  Put("a", JsonStyledText(Info()));
  Json::Value key;
  EXPECT_FALSE(ReadAccountKey(Path("a"), key));
  for (const char* text : {"", "{", "[]", "null", "\"text\""}) {
    WriteFile(Path("a/private_key.json"), text);
    EXPECT_FALSE(ReadAccountKey(Path("a"), key)) << text;
  }
  WriteFile(Path("a/private_key.json"), "{}");
  EXPECT_TRUE(ReadAccountKey(Path("a"), key));
}

TEST_F(AccountStore, WhatKilledRunsLeftGoesWithTheNextList) {
  Put("abcdef", JsonStyledText(Info()));
  WriteFile(Path(".aaaaaa.unfinished"), "");
  WriteFile(Path("aaaaaa/private_key.json"), "{}");
  WriteFile(Path(".gone.removed/info.json"), "{}");
  WriteFile(Path(".kept"), "somebody's");
  WriteFile(Path("by.removed/note"), "somebody's");
  ListAccounts();
  EXPECT_THAT(ListFolder(kAccountStore), ElementsAre(".kept", "abcdef", "by.removed"));
}

TEST_F(AccountStore, WhatCannotBeDeletedIsLogged) {
  Put("abcdef", JsonStyledText(Info()));
  const std::string busy = Path("abcdef/busy");
  fs::create_directory(busy);
  ASSERT_EQ(mount("tmpfs", busy.c_str(), "tmpfs", 0, nullptr), 0);
  RemoveAccount(Path("abcdef"));
  const std::string removed = Path(".abcdef.removed");
  EXPECT_TRUE(Exists(removed + "/busy"));
  EXPECT_EQ(umount2((removed + "/busy").c_str(), MNT_DETACH), 0);
  EXPECT_THAT(syslog_.Texts(), ElementsAre("client_v2:# Failed to remove " + removed + " [16]"));
  EXPECT_THAT(ListAccounts(), IsEmpty());
  EXPECT_FALSE(Exists(removed));
}

class AccountChangeTest : public AccountStore {
 protected:
  std::string folder_ = Create();
};

TEST_F(AccountChangeTest, TheRecordIsReplacedWhole) {
  Json::Value info(Json::objectValue);
  info["contact"] = "you@host.example";
  umask(0);
  ReplaceAccountInfo(folder_, info);
  EXPECT_EQ(ReadFile(folder_ + "/info.json"), "{\n   \"contact\" : \"you@host.example\"\n}\n");
  EXPECT_EQ(ModeOf(folder_ + "/info.json"), 0600U);
}

TEST_F(AccountChangeTest, ARemovedAccountIsGone) {
  WriteFile(folder_ + "/next_key.json", "{}");
  RemoveAccount(folder_);
  EXPECT_THAT(ListFolder(kAccountStore), IsEmpty());
}

TEST_F(AccountChangeTest, ARemovalThatWasKilledIsFinished) {
  const std::string name = fs::path(folder_).filename();
  WriteFile(Path(".") + name + ".removed/private_key.json", "{}");
  EXPECT_EQ(ListAccounts().size(), 1U);
  EXPECT_THAT(ListFolder(kAccountStore), ElementsAre(name));
}

TEST_F(AccountChangeTest, ALeftoverIsNotInTheWay) {
  const std::string name = fs::path(folder_).filename();
  WriteFile(Path(".") + name + ".removed/private_key.json", "{}");
  RemoveAccount(folder_);
  EXPECT_THAT(ListFolder(kAccountStore), IsEmpty());
}

TEST_F(AccountChangeTest, AnAccountThatIsNotThereCannotBeRemoved) {
  EXPECT_THAT(ErrorOf([&] { RemoveAccount(folder_ + "x"); }),
              testing::StartsWith("202 client_v2: cannot remove [" + folder_ + "x]: "));
}

}  // namespace
}  // namespace kova::test
