// What the host says about itself: the device record /usr/kova/etc/device.json and its defaults.
//
// A text of the record counts only when it is a string, not empty and free of control characters;
// otherwise the key's default holds.
//
// The calls with a buffer return 0 on success and fill a NUL-terminated text; a value that does
// not fit makes the call fail (negative), it is never cut. Failures set the error triple: ENOENT
// when the host has no such value, ENOBUFS when it does not fit.
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

// The hardware address, in hexadecimal digits, of the first interface in name order that has one
// and is not the loopback; empty when there is none.
std::string FirstMacAddress();

// False when the record says router "none".
bool RouterUsesUpnp();

// The service unit of the web front-end, or empty.
std::string WebFrontendUnit();

// The text of /etc/machine-id, or empty.
std::string MachineId();

}  // namespace kova::platform
