#include "platform/error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "platform/files.h"

namespace kova::platform {
namespace {

TEST(ErrorTest, TheTripleNamesTheFailingCall) {
  EXPECT_FALSE(KLIBCFileExist("/nowhere/at/all"));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
  EXPECT_STREQ(KLIBCErrorGetFile(), "files.cpp");
  EXPECT_GT(KLIBCErrorGetLine(), 0);
}

TEST(ErrorTest, ARecordedErrorIsErrnoAndTheCallersPlaceWithoutItsFolder) {
  errno = 0;
  RecordError(EIO);
  const int line = __LINE__ - 1;
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(KLIBCErrGet(), EIO);
  EXPECT_STREQ(KLIBCErrorGetFile(), "error_test.cpp");
  EXPECT_EQ(KLIBCErrorGetLine(), line);
}

TEST(ErrorTest, SuccessLeavesTheTripleAlone) {
  RecordError(EIO);
  EXPECT_TRUE(KLIBCFileExist("/"));
  EXPECT_EQ(KLIBCErrGet(), EIO);
}

TEST(ErrorTest, EachThreadHasItsOwn) {
  RecordError(EIO);
  int code = -1;
  std::string file = "unset";
  std::thread([&] {
    code = KLIBCErrGet();
    file = KLIBCErrorGetFile();
    RecordError(ENOSPC);
  }).join();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(file, "");
  EXPECT_EQ(KLIBCErrGet(), EIO);
}

}  // namespace
}  // namespace kova::platform
