// The appliance's kernel entry for the MAC address, which a stock kernel does not have: a folder of
// ours is mounted over /proc/sys/kernel for the time of a test.
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "../archive/archive_fixture.h"
#include "self_signed/serial_file.h"

namespace kova::mkcert {
namespace {

using test::Read;
using test::Write;
using testing::ElementsAre;
using testing::MatchesRegex;

class KernelMacTest : public test::ArchiveTest {
 protected:
  KernelMacTest() { EXPECT_EQ(mount("tmpfs", "/proc/sys/kernel", "tmpfs", 0, nullptr), 0); }
  ~KernelMacTest() override { umount2("/proc/sys/kernel", MNT_DETACH); }
};

TEST_F(KernelMacTest, IsPreferredToTheHostsOwn) {
  Write("/usr/kova/etc/device.json", R"({"mac_address": "00:11:32:5a:6b:7c"})");
  Write(kMacAddressFile, "001132ffeedd\n");
  EXPECT_TRUE(CreateSerialFile());
  EXPECT_THAT(Read(kSerialFile), MatchesRegex("[0-9]{10}eedd"));
}

TEST_F(KernelMacTest, OnlyItsFirstWordCounts) {
  Write(kMacAddressFile, "  001132ffeedd1 more\n");
  EXPECT_TRUE(CreateSerialFile());
  EXPECT_THAT(Read(kSerialFile), MatchesRegex("[0-9]{10}eedd11"));
}

TEST_F(KernelMacTest, OnlyItsFirstThirtyOneCharactersCount) {
  Write(kMacAddressFile, "00000000" + std::string(20, 'b') + "cdef0123");
  EXPECT_TRUE(CreateSerialFile());
  EXPECT_THAT(Read(kSerialFile), MatchesRegex("[0-9]{10}b{20}c1"));
}

TEST_F(KernelMacTest, AnEmptyEntryIsAFailure) {
  Write(kMacAddressFile, " \n");
  EXPECT_FALSE(CreateSerialFile());
  EXPECT_FALSE(HasSerialFile());
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Fetch /proc/sys/kernel/kova_mac_address1 failed"));
}

TEST_F(KernelMacTest, AHostWithoutAnyMacIsAFailure) {
  // The test's network is loopback alone, so that nothing is left but the machine id.
  const std::string id = "/etc/machine-id";
  const std::string saved = test::Exists(id) ? Read(id) : "";
  test::RemoveAll(id);
  EXPECT_FALSE(CreateSerialFile());
  Write(id, saved, 0444);
  EXPECT_FALSE(HasSerialFile());
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Open /proc/sys/kernel/kova_mac_address1 failed"));
}

TEST_F(KernelMacTest, AnEntryThatCannotBeOpenedIsAFailure) {
  Write("/usr/kova/etc/device.json", R"({"mac_address": "00:11:32:5a:6b:7c"})");
  const int socket_fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, kMacAddressFile);
  ASSERT_EQ(bind(socket_fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_FALSE(CreateSerialFile());
  close(socket_fd);
  EXPECT_THAT(Log(), ElementsAre("mkcert.cpp:# Open /proc/sys/kernel/kova_mac_address1 failed"));
}

}  // namespace
}  // namespace kova::mkcert
