#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "host_files.h"
#include "platform/error.h"
#include "platform/service.h"

namespace kova::platform {
namespace {

using test::ReadFile;
using test::WriteFile;

class UsersTest : public testing::Test {
 protected:
  UsersTest() {
    WriteFile("/etc/passwd", passwd_ + "webowner:x:4711:4712::/nonexistent:/bin/false\n");
  }
  ~UsersTest() override { WriteFile("/etc/passwd", passwd_); }

  std::string passwd_ = ReadFile("/etc/passwd");
  uid_t uid_ = 99;
  gid_t gid_ = 98;
};

TEST_F(UsersTest, AUserHasBothIds) {
  EXPECT_EQ(KOVAUserGetUGID("webowner", &uid_, &gid_), 0);
  EXPECT_EQ(uid_, 4711U);
  EXPECT_EQ(gid_, 4712U);
  EXPECT_EQ(KOVAUserGetUGID("root", &uid_, &gid_), 0);
  EXPECT_EQ(uid_, 0U);
  EXPECT_EQ(gid_, 0U);
}

TEST_F(UsersTest, AnUnknownUserFailsAndLeavesTheIdsAlone) {
  for (const std::string& name : {std::string("nobody-of-that-name"), std::string(),
                                  std::string("0"), std::string("root\0x", 6)}) {
    EXPECT_LT(KOVAUserGetUGID(name, &uid_, &gid_), 0) << name;
    EXPECT_EQ(KLIBCErrGet(), ENOENT);
    EXPECT_STREQ(KLIBCErrorGetFile(), "users.cpp");
    EXPECT_EQ(uid_, 99U);
    EXPECT_EQ(gid_, 98U);
  }
}

TEST_F(UsersTest, ALongRecordIsRead) {
  WriteFile("/etc/passwd",
            passwd_ + "long:x:4711:4712:" + std::string(3000, 'x') + ":/:/bin/false\n");
  EXPECT_EQ(KOVAUserGetUGID("long", &uid_, &gid_), 0);
  EXPECT_EQ(uid_, 4711U);
}

}  // namespace
}  // namespace kova::platform
