// What the host says about itself: the device record /usr/kova/etc/device.json and its defaults.
//
// The calls with a buffer return 0 on success and fill a NUL-terminated text; a value that does
// not fit makes the call fail (negative), it is never cut.
#pragma once

#include <string>

struct KOVA_TOLU_ACCOUNT {
  char id[256];
  char auth_key[256];
};

int KLIBBoxinfoUserAgentGet(const char* service_tag, char* buffer, int size);
int KLIBGetSerialNumber(char* buffer, int size);
int KOVADDNSGetKovaHostname(char* buffer, int size);
int KOVATOLUAccountGet(KOVA_TOLU_ACCOUNT* account);

namespace kova::platform {

inline constexpr char kDeviceRecordPath[] = "/usr/kova/etc/device.json";

// Name server of the vendor's dynamic-DNS zone: host name or IPv4 address.
std::string DdnsNameServer();

// Hexadecimal digits of the record's mac_address, else of the first non-loopback interface in name
// order, else of /etc/machine-id; empty when none of them is to be had.
std::string MacAddressText();

// False when the record says router "none".
bool RouterUsesUpnp();

// The service unit of the web front-end, or empty.
std::string WebFrontendUnit();

}  // namespace kova::platform
