#include "lifecycle/renewal_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/files.h"
#include "base/sl_error.h"

namespace kova {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFiles[] = {"cert.pem", "chain.pem", "fullchain.pem", "privkey.pem",
                                  "renew.json"};

class RenewalFilesTest : public testing::Test {
 protected:
  RenewalFilesTest() {
    fs::remove_all(root_);
    fs::create_directories(fresh_);
    fs::create_directories(old_);
  }
  ~RenewalFilesTest() override { fs::remove_all(root_); }

  static void Put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

  const std::string root_ = "/run/cli-test";
  const std::string fresh_ = root_ + "/fresh";
  const std::string old_ = root_ + "/old";
};

TEST_F(RenewalFilesTest, TheFiveFilesReplaceThoseOfTheOldFolder) {
  for (const char* name : kFiles) {
    Put(fresh_ + "/" + name, std::string("new ") + name);
    Put(old_ + "/" + name, "old");
  }
  Put(old_ + "/other", "kept");
  MoveRenewalFiles(fresh_, old_);
  for (const char* name : kFiles) {
    EXPECT_EQ(ReadTextFile(old_ + "/" + name), std::string("new ") + name);
  }
  EXPECT_EQ(ReadTextFile(old_ + "/other"), "kept");
  EXPECT_TRUE(fs::is_empty(fresh_));
}

TEST_F(RenewalFilesTest, AFailedMoveStopsThereAndLeavesTheRest) {
  for (const char* name : kFiles) Put(fresh_ + "/" + name, "new");
  fs::create_directory(old_ + "/fullchain.pem");
  try {
    MoveRenewalFiles(fresh_, old_);
    FAIL() << "nothing was thrown";
  } catch (const SLError& error) {
    EXPECT_EQ(error.code, 202);
    EXPECT_EQ(error.file, "utils");
    EXPECT_EQ(error.message, "Rename file failed. " + fresh_ + "/fullchain.pem => " + old_ +
                                 "/fullchain.pem [" + std::to_string(EISDIR) + "]");
  }
  EXPECT_EQ(ReadTextFile(old_ + "/cert.pem"), "new");
  EXPECT_EQ(ReadTextFile(old_ + "/chain.pem"), "new");
  EXPECT_TRUE(fs::exists(fresh_ + "/privkey.pem"));
  EXPECT_TRUE(fs::exists(fresh_ + "/renew.json"));
}

TEST_F(RenewalFilesTest, TheMessageOfAFailedMoveIsCutAt1023Bytes) {
  try {
    MoveRenewalFiles(std::string(2000, 'x'), old_);
    FAIL() << "nothing was thrown";
  } catch (const SLError& error) {
    EXPECT_EQ(error.message.size(), 1023U);
  }
}

TEST_F(RenewalFilesTest, AFolderIsRemovedWithItsFiles) {
  for (const char* name : kFiles) Put(fresh_ + "/" + name, "x");
  RemoveFolder(fresh_);
  EXPECT_FALSE(fs::exists(fresh_));
}

TEST_F(RenewalFilesTest, WhatCannotBeRemovedStaysSilently) {
  fs::create_directory(fresh_ + "/inner");
  Put(fresh_ + "/file", "x");
  RemoveFolder(fresh_);
  EXPECT_TRUE(fs::exists(fresh_ + "/inner"));
  EXPECT_FALSE(fs::exists(fresh_ + "/file"));
  RemoveFolder("");
  RemoveFolder(root_ + "/missing");
}

}  // namespace
}  // namespace kova
