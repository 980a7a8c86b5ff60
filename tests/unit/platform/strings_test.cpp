#include "platform/strings.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <climits>

#include "platform/error.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(StringsTest, EveryPieceIsKeptTheEmptyOnesToo) {
  const KovaSzListPtr list = KLIBCSzListAlloc(512);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(KLIBCStrSep("a.example;;10.0.0.1;", ";", *list), 4);
  EXPECT_THAT(list->items, ElementsAre("a.example", "", "10.0.0.1", ""));
}

TEST(StringsTest, AnEmptyTextIsOneEmptyPiece) {
  const KovaSzListPtr list = KLIBCSzListAlloc(1);
  EXPECT_EQ(KLIBCStrSep("", ";", *list), 1);
  EXPECT_THAT(list->items, ElementsAre(""));
}

TEST(StringsTest, SeparatorsMayBeLongerThanOneByte) {
  const KovaSzListPtr list = KLIBCSzListAlloc(8);
  EXPECT_EQ(KLIBCStrSep("a, b,c", ", ", *list), 2);
  EXPECT_THAT(list->items, ElementsAre("a", "b,c"));
}

TEST(StringsTest, PiecesAreAppended) {
  const KovaSzListPtr list = KLIBCSzListAlloc(3);
  EXPECT_EQ(KLIBCStrSep("a", ";", *list), 1);
  EXPECT_EQ(KLIBCStrSep("b;c", ";", *list), 2);
  EXPECT_THAT(list->items, ElementsAre("a", "b", "c"));
}

TEST(StringsTest, PiecesThatDoNotFitAreRefusedTogether) {
  const KovaSzListPtr list = KLIBCSzListAlloc(512);
  EXPECT_EQ(KLIBCStrSep(std::string(511, ';'), ";", *list), 512);
  list->items.clear();
  EXPECT_EQ(KLIBCStrSep(std::string(512, ';'), ";", *list), -1);
  EXPECT_EQ(KLIBCErrGet(), ENOBUFS);
  EXPECT_THAT(list->items, IsEmpty());
}

TEST(StringsTest, AnEmptySeparatorIsRefused) {
  const KovaSzListPtr list = KLIBCSzListAlloc(8);
  EXPECT_EQ(KLIBCStrSep("abc", "", *list), -1);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
}

TEST(StringsTest, AListNeedsRoom) {
  EXPECT_EQ(KLIBCSzListAlloc(0), nullptr);
  EXPECT_EQ(KLIBCErrGet(), EINVAL);
  EXPECT_EQ(KLIBCSzListAlloc(-512), nullptr);
}

TEST(StringsTest, EntriesAreFoundByIndex) {
  const KovaSzListPtr list = KLIBCSzListAlloc(8);
  EXPECT_EQ(KLIBCSzListGet(*list, 0), nullptr);
  ASSERT_EQ(KLIBCStrSep("a;b", ";", *list), 2);
  EXPECT_STREQ(KLIBCSzListGet(*list, 0), "a");
  EXPECT_STREQ(KLIBCSzListGet(*list, 1), "b");
  EXPECT_EQ(KLIBCSzListGet(*list, 2), nullptr);
  EXPECT_EQ(KLIBCSzListGet(*list, -1), nullptr);
}

TEST(StringsTest, AddressesAreToldFromNames) {
  for (const char* address :
       {"10.0.0.1", "255.255.255.255", "::1", "2001:db8::5", "::ffff:1.2.3.4"})
    EXPECT_TRUE(BlKLIBIsIpAddr(address)) << address;
  for (const char* name :
       {"", "a.example", "10.0.0", "10.0.0.256", "10.0.0.1.", " 10.0.0.1", "10.0.0.1 ",
        "0x7f.0.0.1", "127.1", ":::1", "[::1]", "fe80::1%eth0", "*.example"})
    EXPECT_FALSE(BlKLIBIsIpAddr(name)) << name;
  EXPECT_FALSE(BlKLIBIsIpAddr(std::string("10.0.0.1\0.example", 17)));
}

}  // namespace
