#include "platform/home_network.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <optional>
#include <string_view>

namespace kova::platform {
namespace {

constexpr std::string_view kHttp = "http://";
constexpr unsigned int kSearched = IFF_UP | IFF_MULTICAST;

struct Network {
  in_addr_t address;  // of host byte order
  int bits;
};

// Those for private and special use, documentation, multicast and the future.
constexpr std::array<Network, 18> kNotPublic = {{
    {0x00000000, 8},
    {0x0A000000, 8},
    {0x64400000, 10},
    {0x7F000000, 8},
    {0xA9FE0000, 16},
    {0xAC100000, 12},
    {0xC0000000, 24},
    {0xC0000200, 24},
    {0xC01FC400, 24},
    {0xC034C100, 24},
    {0xC0586300, 24},
    {0xC0A80000, 16},
    {0xC0AF3000, 24},
    {0xC6120000, 15},
    {0xC6336400, 24},
    {0xCB007100, 24},
    {0xE0000000, 4},
    {0xF0000000, 4},
}};

struct FreeAddresses {
  void operator()(ifaddrs* list) const { freeifaddrs(list); }
};

std::optional<in_addr> ReadAddress(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return address;
}

bool IsPort(std::string_view text) {
  uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), port);
  return error == std::errc() && end == text.end() && port != 0;
}

// Nothing for a URL that is not of the two forms to the letter.
std::optional<in_addr> AddressIn(std::string_view url) {
  if (!url.starts_with(kHttp)) return std::nullopt;
  url.remove_prefix(kHttp.size());
  const size_t end = url.find('/');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string_view place = url.substr(0, end);
  const size_t colon = place.find(':');
  if (colon != std::string_view::npos && !IsPort(place.substr(colon + 1))) return std::nullopt;
  return ReadAddress(std::string(place.substr(0, colon)));
}

in_addr_t NumberOf(const sockaddr* address) {
  return reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr;
}

bool IsOn(const ifaddrs& interface, in_addr address) {
  if ((interface.ifa_flags & kSearched) != kSearched || interface.ifa_addr == nullptr ||
      interface.ifa_netmask == nullptr || interface.ifa_addr->sa_family != AF_INET) {
    return false;
  }
  const in_addr_t mask = NumberOf(interface.ifa_netmask);
  return ((NumberOf(interface.ifa_addr) ^ address.s_addr) & mask) == 0;
}

}  // namespace

bool IsNearbyUrl(const std::string& url) {
  const auto address = AddressIn(url);
  ifaddrs* found = nullptr;
  if (!address || getifaddrs(&found) != 0) return false;
  const std::unique_ptr<ifaddrs, FreeAddresses> interfaces(found);
  for (const ifaddrs* each = found; each != nullptr; each = each->ifa_next) {
    if (IsOn(*each, *address)) return true;
  }
  return false;
}

bool IsPublicAddress(const std::string& text) {
  const auto address = ReadAddress(text);
  if (!address) return false;
  const in_addr_t number = ntohl(address->s_addr);
  return std::none_of(kNotPublic.begin(), kNotPublic.end(), [&](const Network& network) {
    return ((number ^ network.address) >> (32 - network.bits)) == 0;
  });
}

}  // namespace kova::platform
