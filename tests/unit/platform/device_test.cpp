#include "platform/device.h"

#include <gmock/gmock.h>
#include <sys/utsname.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "host_files.h"
#include "platform/error.h"
#include "platform/version.h"
#include "scratch.h"
#include "syslog_capture.h"

namespace kova::platform {
namespace {

using test::InChild;
using test::ReadFile;
using test::Shell;
using test::SyslogCapture;
using test::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kMachineIdPath[] = "/etc/machine-id";

class DeviceTest : public testing::Test {
 protected:
  DeviceTest() { unlink(kDeviceRecordPath); }
  ~DeviceTest() override {
    unlink(kDeviceRecordPath);
    WriteFile(kMachineIdPath, machine_id_);
  }

  static void Record(const std::string& json) { WriteFile(kDeviceRecordPath, json, 0600); }

  static std::string UserAgent() {
    char buffer[256] = {};
    return KLIBBoxinfoUserAgentGet("DDNS", buffer, sizeof buffer) == 0 ? buffer : "<failed>";
  }
  static std::string HostName() {
    char buffer[1024] = {};
    return KOVADDNSGetKovaHostname(buffer, sizeof buffer) == 0 ? buffer : "<failed>";
  }
  static std::string DefaultUserAgent() {
    utsname host{};
    uname(&host);
    return std::string("kova-letsencrypt/" KOVA_PROGRAM_VERSION " (DDNS; Linux ") + host.machine +
           ")";
  }

  std::string machine_id_ = ReadFile(kMachineIdPath);
};

// Values that are no text for any key.
const std::vector<std::string> kNoText = {"1",    "true",          "null",      "[]",         "{}",
                                          "\"\"", "\"a\\u0000b\"", "\"a\\nb\"", "\"\\u007f\""};

TEST_F(DeviceTest, TheUserAgentNamesProgramTagAndMachine) {
  EXPECT_EQ(UserAgent(), DefaultUserAgent());
  EXPECT_STREQ(KOVA_PROGRAM_NAME, "kova-letsencrypt");
}

TEST_F(DeviceTest, TheRecordsUserAgentIsUsedAsItIs) {
  Record(R"json({"user_agent": "Box 7 (ü)"})json");
  EXPECT_EQ(UserAgent(), "Box 7 (ü)");
}

TEST_F(DeviceTest, AValueOfTheWrongTypeMeansTheDefault) {
  for (const std::string& value : kNoText) {
    Record(R"({"user_agent":)" + value + R"(,"ddns_name_server":)" + value +
           R"(,"ddns_hostname":)" + value + R"(,"web_frontend":)" + value + R"(,"router":)" +
           value + "}");
    EXPECT_EQ(UserAgent(), DefaultUserAgent()) << value;
    EXPECT_EQ(DdnsNameServer(), "ns1.ddns.kova.example") << value;
    EXPECT_EQ(HostName(), "<failed>") << value;
    EXPECT_EQ(WebFrontendUnit(), "") << value;
    EXPECT_TRUE(RouterUsesUpnp()) << value;
  }
}

TEST_F(DeviceTest, AValueThatDoesNotFitFailsAndIsNotCut) {
  Record(R"({"user_agent": "0123456789"})");
  char buffer[] = "untouched!!";
  EXPECT_LT(KLIBBoxinfoUserAgentGet("DDNS", buffer, 10), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOBUFS);
  EXPECT_STREQ(buffer, "untouched!!");
  EXPECT_EQ(KLIBBoxinfoUserAgentGet("DDNS", buffer, 11), 0);
  EXPECT_STREQ(buffer, "0123456789");
  EXPECT_LT(KLIBBoxinfoUserAgentGet("DDNS", buffer, 0), 0);
}

TEST_F(DeviceTest, TheHostNameComesFromTheRecordAlone) {
  EXPECT_EQ(HostName(), "<failed>");
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
  Record(R"({"ddns_hostname": "box.ddns.example"})");
  EXPECT_EQ(HostName(), "box.ddns.example");
}

TEST_F(DeviceTest, TheNameServerHasABuiltInDefault) {
  EXPECT_EQ(DdnsNameServer(), "ns1.ddns.kova.example");
  Record(R"({"ddns_name_server": "127.0.0.53"})");
  EXPECT_EQ(DdnsNameServer(), "127.0.0.53");
}

TEST_F(DeviceTest, TheSerialNumberIsTheRecords) {
  Record(R"({"serial_number": "1234ABC"})");
  char buffer[36] = {};
  EXPECT_EQ(KLIBGetSerialNumber(buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "1234ABC");
  Record(R"({"serial_number": ")" + std::string(36, '1') + "\"}");
  EXPECT_LT(KLIBGetSerialNumber(buffer, sizeof buffer), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOBUFS);
}

// /sys is the machine's own, but what is mounted over it here is not.
int SerialWithDmi(const std::string& content, std::string& serial) {
  test::Scratch scratch;
  WriteFile(scratch.Path("class/dmi/id/product_serial"), content, 0400);
  Shell("mount --bind " + scratch.Folder() + " /sys");
  char buffer[36] = {};
  const int result = KLIBGetSerialNumber(buffer, sizeof buffer);
  serial = buffer;
  Shell("umount /sys");
  return result;
}

TEST_F(DeviceTest, TheSerialNumberFallsBackToTheMachinesOwn) {
  std::string serial;
  EXPECT_EQ(SerialWithDmi("  DMI-0042 \n", serial), 0);
  EXPECT_EQ(serial, "DMI-0042");
  EXPECT_LT(SerialWithDmi(" \t\n", serial), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
  EXPECT_LT(SerialWithDmi("", serial), 0);
  Record(R"({"serial_number": 7})");
  EXPECT_EQ(SerialWithDmi("DMI-0042\n", serial), 0);
  EXPECT_EQ(serial, "DMI-0042");
}

TEST_F(DeviceTest, TheAccountNeedsBothTexts) {
  KOVA_TOLU_ACCOUNT account{};
  EXPECT_LT(KOVATOLUAccountGet(&account), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOENT);
  for (const char* value : {R"("text")", "[]", "{}", R"({"id":"a"})", R"({"auth_key":"b"})",
                            R"({"id":1,"auth_key":2})", R"({"id":"a","auth_key":""})"}) {
    Record(std::string(R"({"account":)") + value + "}");
    EXPECT_LT(KOVATOLUAccountGet(&account), 0) << value;
    EXPECT_EQ(KLIBCErrGet(), ENOENT) << value;
    EXPECT_STREQ(account.id, "");
  }
  Record(R"({"account": {"id": "me", "auth_key": "secret"}})");
  EXPECT_EQ(KOVATOLUAccountGet(&account), 0);
  EXPECT_STREQ(account.id, "me");
  EXPECT_STREQ(account.auth_key, "secret");
}

TEST_F(DeviceTest, AnAccountThatDoesNotFitFails) {
  KOVA_TOLU_ACCOUNT account{};
  const std::string longest(255, 'k');
  Record(R"({"account": {"id": "me", "auth_key": ")" + longest + "\"}}");
  EXPECT_EQ(KOVATOLUAccountGet(&account), 0);
  EXPECT_EQ(account.auth_key, longest);
  Record(R"({"account": {"id": "you", "auth_key": "k)" + longest + "\"}}");
  EXPECT_LT(KOVATOLUAccountGet(&account), 0);
  EXPECT_EQ(KLIBCErrGet(), ENOBUFS);
  EXPECT_STREQ(account.id, "me");
}

TEST_F(DeviceTest, OfTheMacAddressTheHexadecimalDigitsCount) {
  Record(R"({"mac_address": "00:1A:2b-xyz-3c.4D:5e"})");
  EXPECT_EQ(MacAddressText(), "001A2b3c4D5e");
}

TEST_F(DeviceTest, WithoutAnInterfaceTheMachineIdServes) {
  WriteFile(kMachineIdPath, "0123456789abcdef0123456789abcdef\n");
  EXPECT_EQ(MacAddressText(), "0123456789abcdef0123456789abcdef");
  Record(R"({"mac_address": "xyz"})");
  EXPECT_EQ(MacAddressText(), "0123456789abcdef0123456789abcdef");
  unlink(kMachineIdPath);
  EXPECT_EQ(MacAddressText(), "");
}

TEST_F(DeviceTest, TheLoopbackIsNoInterfaceEvenWithAnAddress) {
  WriteFile(kMachineIdPath, "abc\n");
  Shell("ip link set lo address 02:00:00:00:00:01");
  EXPECT_EQ(MacAddressText(), "abc");
}

TEST_F(DeviceTest, TheFirstInterfaceInNameOrderGivesTheMacAddress) {
  Shell(
      "ip link add zz9 address 02:00:00:00:00:99 type veth peer name aa1 address "
      "02:00:00:00:00:aa");
  EXPECT_EQ(MacAddressText(), "0200000000aa");
  Record(R"({"mac_address": "12:34"})");
  EXPECT_EQ(MacAddressText(), "1234");
  Shell("ip link del zz9");
}

TEST_F(DeviceTest, TheRouterIsAskedUnlessTheRecordSaysThereIsNone) {
  EXPECT_TRUE(RouterUsesUpnp());
  Record(R"({"router": "upnp"})");
  EXPECT_TRUE(RouterUsesUpnp());
  Record(R"({"router": "none"})");
  EXPECT_FALSE(RouterUsesUpnp());
}

TEST_F(DeviceTest, TheWebFrontendIsTheRecords) {
  EXPECT_EQ(WebFrontendUnit(), "");
  Record(R"({"web_frontend": "nginx.service"})");
  EXPECT_EQ(WebFrontendUnit(), "nginx.service");
}

TEST_F(DeviceTest, TheMachineIdIsTheFirstLineWithoutBlanks) {
  WriteFile(kMachineIdPath, " abc \nsecond\n");
  EXPECT_EQ(MachineId(), "abc");
  unlink(kMachineIdPath);
  EXPECT_EQ(MachineId(), "");
}

// In children: a process says it once.
std::vector<std::string> WhatIsSaidOf(const std::string& record) {
  WriteFile(kDeviceRecordPath, record, 0600);
  SyslogCapture log;
  EXPECT_EQ(InChild([] {
              char buffer[256] = {};
              if (KLIBBoxinfoUserAgentGet("DDNS", buffer, sizeof buffer) != 0) return 1;
              return KOVADDNSGetKovaHostname(buffer, sizeof buffer) < 0 && RouterUsesUpnp() ? 0 : 2;
            }),
            0);
  return log.Texts();
}

TEST_F(DeviceTest, AnUnusableRecordMeansTheDefaultsAndIsToldOnce) {
  for (const char* record : {"", "{\"router\":", "[]", "null", "\"none\""}) {
    EXPECT_THAT(WhatIsSaidOf(record),
                ElementsAre("device:# Unusable device record [/usr/kova/etc/device.json]: not a "
                            "JSON object"))
        << record;
  }
}

TEST_F(DeviceTest, ARecordThatCannotBeReadIsToldWithItsReason) {
  std::filesystem::create_directories(kDeviceRecordPath);
  SyslogCapture log;
  EXPECT_EQ(InChild([] { return RouterUsesUpnp() ? 0 : 1; }), 0);
  EXPECT_THAT(log.Texts(),
              ElementsAre("device:# Unusable device record [/usr/kova/etc/device.json]: Is a "
                          "directory"));
  EXPECT_EQ(log.Messages().at(0).priority, LOG_ERR);
  ASSERT_EQ(rmdir(kDeviceRecordPath), 0);
}

TEST_F(DeviceTest, AMissingOrUsableRecordIsNothingToTell) {
  EXPECT_THAT(WhatIsSaidOf(R"({"user_agent": 7})"), IsEmpty());
  unlink(kDeviceRecordPath);
  SyslogCapture log;
  EXPECT_EQ(InChild([] { return RouterUsesUpnp() ? 0 : 1; }), 0);
  EXPECT_THAT(log.Texts(), IsEmpty());
}

}  // namespace
}  // namespace kova::platform
