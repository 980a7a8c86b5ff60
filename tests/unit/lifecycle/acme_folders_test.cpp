#include "lifecycle/acme_folders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "syslog_capture.h"

namespace kova {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string kRoot = "/usr/kova/etc/certificate/_archive";

class AcmeFoldersTest : public testing::Test {
 protected:
  AcmeFoldersTest() {
    fs::remove_all(kRoot);
    fs::create_directories(kRoot);
  }

  static void Put(const std::string& name, const std::string& text) {
    std::ofstream(kRoot + "/" + name) << text;
  }

  test::SyslogCapture syslog_;
};

TEST_F(AcmeFoldersTest, OnlyFoldersWithARenewalRecordAreListedSorted) {
  Put("INFO", R"({"b": {}, "a": {}, "plain": {}})");
  for (const char* id : {"a", "b", "plain", "unlisted"}) fs::create_directory(kRoot + "/" + id);
  for (const char* id : {"a", "b", "unlisted"}) Put(std::string(id) + "/renew.json", "{}");
  EXPECT_THAT(ListAcmeFolders(), ElementsAre(kRoot + "/a", kRoot + "/b"));
  EXPECT_THAT(syslog_.Texts(), IsEmpty());
}

TEST_F(AcmeFoldersTest, ADeletedFolderIsLoggedAndLeftOut) {
  Put("INFO", R"({"gone": {}})");
  EXPECT_THAT(ListAcmeFolders(), IsEmpty());
  EXPECT_THAT(
      syslog_.Texts(),
      ElementsAre("utils:# Folder not exist. [No such file or directory][" + kRoot + "/gone]"));
}

TEST_F(AcmeFoldersTest, AMissingIndexIsLogged) {
  EXPECT_THAT(ListAcmeFolders(), IsEmpty());
  EXPECT_THAT(syslog_.Texts(), ElementsAre("utils:# File not exist. [No such file or directory][" +
                                           kRoot + "/INFO]"));
}

TEST_F(AcmeFoldersTest, AnIndexThatIsNoObjectIsLogged) {
  using Case = std::pair<const char*, std::string>;
  for (const auto& [text, reason] :
       {Case{"", "Success"}, Case{"{", "Success"}, Case{"[]", "not an object"},
        Case{"7", "not an object"}, Case{"null", "not an object"},
        Case{"\"x\"", "not an object"}}) {
    Put("INFO", text);
    syslog_.Clear();
    EXPECT_THAT(ListAcmeFolders(), IsEmpty()) << text;
    EXPECT_THAT(syslog_.Texts(),
                ElementsAre("utils:# Read json file failed. [" + reason + "][" + kRoot + "/INFO]"))
        << text;
  }
}

}  // namespace
}  // namespace kova
