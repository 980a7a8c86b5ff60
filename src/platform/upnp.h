// The Internet Gateway Device of the local network, spoken to over UPnP.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kova::platform {

// One port mapping of the router. The texts are the router's.
struct PortMapping {
  std::string external_port;
  std::string protocol;
  std::string client;  // address on the local network
  std::string internal_port;
  std::string description;
  std::string remote_host;
  bool enabled = false;
};

// Results are 0, kGatewayUnreachable, or the UPnP error code with which the router refused.
inline constexpr int kGatewayUnreachable = -1;
namespace upnp_error {
inline constexpr int kActionFailed = 501;  // also for answers that make no sense
inline constexpr int kNoSuchEntry = 714;
inline constexpr int kOnlyPermanentLeases = 725;
inline constexpr int kHighest = 9999;  // that is taken for one
}  // namespace upnp_error

// A gateway, as it described itself: nothing of it is to be trusted. Only a confined process talks
// to one (confined.h).
struct Gateway {
  std::string control_url;
  std::string service_type;
  std::string host_address;  // the address of this host that the gateway sees

  // Searches the network for 2 seconds at most, and asks what it found as long as that takes. None
  // without a gateway that is connected. Wherever an answer points, nobody is asked who is not on a
  // network of this host (home_network.h).
  static std::optional<Gateway> Discover();

  // Every mapping that the router shows.
  [[nodiscard]] int List(std::vector<PortMapping>& mappings) const;

  // The mapping of one TCP port; nothing and 0 when there is none.
  [[nodiscard]] int Find(int external_port, std::optional<PortMapping>& mapping) const;

  // Forwards a TCP port to this host. A lease of 0 seconds is for ever.
  [[nodiscard]] int Add(int external_port, int internal_port, const std::string& description,
                        int lease_seconds) const;

  [[nodiscard]] int Delete(const PortMapping& mapping) const;

  bool operator==(const Gateway&) const = default;
};

}  // namespace kova::platform
