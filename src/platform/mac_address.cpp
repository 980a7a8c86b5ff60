#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/socket.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>

#include "platform/device.h"

namespace kova::platform {
namespace {

struct FreeAddresses {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

// Empty for interfaces without a hardware address, such as tunnels, whose bytes are all zero.
std::string HardwareAddress(const sockaddr_ll& link) {
  static constexpr char kDigits[] = "0123456789abcdef";
  const size_t length = std::min<size_t>(link.sll_halen, sizeof link.sll_addr);
  std::string text;
  bool blank = true;
  for (size_t i = 0; i < length; ++i) {
    const unsigned char byte = link.sll_addr[i];
    blank = blank && byte == 0;
    text += {kDigits[byte >> 4], kDigits[byte & 0x0f]};
  }
  return blank ? std::string() : text;
}

}  // namespace

std::string FirstMacAddress() {
  ifaddrs* found = nullptr;
  if (getifaddrs(&found) != 0) return {};
  const std::unique_ptr<ifaddrs, FreeAddresses> list(found);
  std::map<std::string, std::string> by_name;
  for (const ifaddrs* entry = list.get(); entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET) continue;
    if ((entry->ifa_flags & IFF_LOOPBACK) != 0) continue;
    const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
    const std::string address = HardwareAddress(*link);
    if (!address.empty()) by_name.emplace(entry->ifa_name, address);
  }
  return by_name.empty() ? std::string() : by_name.begin()->second;
}

}  // namespace kova::platform
