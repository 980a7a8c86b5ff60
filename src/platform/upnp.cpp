#include "platform/upnp.h"

#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>

#include <array>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/home_network.h"

namespace kova::platform {
namespace {

constexpr unsigned char kTimeToLive = 2;
constexpr int kRoundMilliseconds = 1000;
// One round each, the second only when the first found nothing. Every gateway answers to the first
// name; its connection service in the second round makes up for a lost packet.
constexpr std::array<const char*, 3> kSearchedFor = {
    "urn:schemas-upnp-org:device:InternetGatewayDevice:1",
    "urn:schemas-upnp-org:service:WANIPConnection:1", nullptr};
constexpr std::string_view kGatewayService =
    "urn:schemas-upnp-org:service:WANCommonInterfaceConfig:";
constexpr int kMostMappings = 1024;  // a router that never comes to an end of its list
constexpr char kTcp[] = "TCP";

struct FreeDevices {
  void operator()(UPNPDev* list) const { freeUPNPDevlist(list); }
};

bool IsConnectionOf(UPNPUrls& urls, IGDdatas& data) {
  if (urls.controlURL == nullptr || !IsNearbyUrl(urls.controlURL)) return false;
  if (UPNPIGD_IsConnected(&urls, &data) == 0) return false;
  std::array<char, 16> address{};
  return UPNP_GetExternalIPAddress(urls.controlURL, data.first.servicetype, address.data()) ==
             UPNPCOMMAND_SUCCESS &&
         IsPublicAddress(address.data());
}

// What the library makes of a device's description. It would ask anybody whom a description names,
// so the address of each question is looked at here before it is put.
class Description {
 public:
  Description() = default;
  ~Description() { FreeUPNPUrls(&urls_); }
  Description(const Description&) = delete;
  Description& operator=(const Description&) = delete;

  bool Fetch(const std::string& url) {
    url_ = url;
    return IsNearbyUrl(url) && UPNP_GetIGDFromUrl(url.c_str(), &urls_, &data_, host_.data(),
                                                  static_cast<int>(host_.size())) == 1;
  }

  // By the one or the other of the connections that it may have.
  bool IsConnectedGateway() {
    if (!std::string_view(&*data_.CIF.servicetype).starts_with(kGatewayService)) return false;
    if (IsConnectionOf(urls_, data_)) return true;
    if (*data_.second.servicetype == '\0') return false;
    std::swap(data_.first, data_.second);
    FreeUPNPUrls(&urls_);
    GetUPNPUrls(&urls_, &data_, url_.c_str(), 0);
    return IsConnectionOf(urls_, data_);
  }

  [[nodiscard]] Gateway Found() const {
    return {urls_.controlURL, &*data_.first.servicetype, host_.data()};
  }

 private:
  std::string url_;
  UPNPUrls urls_{};
  IGDdatas data_{};
  std::array<char, 64> host_{};
};

int Result(int code) {
  if (code == UPNPCOMMAND_SUCCESS) return 0;
  if (code == UPNPCOMMAND_HTTP_ERROR) return kGatewayUnreachable;
  return code > 0 && code <= upnp_error::kHighest ? code : upnp_error::kActionFailed;
}

// The texts of one mapping, of the sizes that the library asks for.
struct Entry {
  std::array<char, 6> external_port{};
  std::array<char, 16> client{};
  std::array<char, 6> internal_port{};
  std::array<char, 4> protocol{};
  std::array<char, 80> description{};
  std::array<char, 4> enabled{};
  std::array<char, 64> remote_host{};
  std::array<char, 16> lease{};

  [[nodiscard]] PortMapping Mapping() const {
    return {external_port.data(), protocol.data(),    client.data(),    internal_port.data(),
            description.data(),   remote_host.data(), enabled[0] == '1'};
  }
};

}  // namespace

std::optional<Gateway> Gateway::Discover() {
  int error = UPNPDISCOVER_SUCCESS;
  const std::unique_ptr<UPNPDev, FreeDevices> devices(
      upnpDiscoverDevices(kSearchedFor.data(), kRoundMilliseconds, nullptr, nullptr,
                          UPNP_LOCAL_PORT_ANY, 0, kTimeToLive, &error, 0));
  for (const UPNPDev* device = devices.get(); device != nullptr; device = device->pNext) {
    Description description;
    if (description.Fetch(device->descURL) && description.IsConnectedGateway()) {
      return description.Found();
    }
  }
  return std::nullopt;
}

int Gateway::List(std::vector<PortMapping>& mappings) const {
  for (int index = 0; index < kMostMappings; ++index) {
    Entry entry;
    const int result = Result(UPNP_GetGenericPortMappingEntry(
        control_url.c_str(), service_type.c_str(), std::to_string(index).c_str(),
        entry.external_port.data(), entry.client.data(), entry.internal_port.data(),
        entry.protocol.data(), entry.description.data(), entry.enabled.data(),
        entry.remote_host.data(), entry.lease.data()));
    if (result == kGatewayUnreachable) return result;
    // Routers do not agree on the error that ends the list.
    if (result != 0) return 0;
    mappings.push_back(entry.Mapping());
  }
  return 0;
}

int Gateway::Find(int external_port, std::optional<PortMapping>& mapping) const {
  const std::string port = std::to_string(external_port);
  Entry entry;
  const int result = Result(UPNP_GetSpecificPortMappingEntry(
      control_url.c_str(), service_type.c_str(), port.c_str(), kTcp, nullptr, entry.client.data(),
      entry.internal_port.data(), entry.description.data(), entry.enabled.data(),
      entry.lease.data()));
  mapping.reset();
  if (result == kGatewayUnreachable) return result;
  if (result != 0) return 0;
  mapping = entry.Mapping();
  mapping->external_port = port;
  mapping->protocol = kTcp;
  return 0;
}

int Gateway::Add(int external_port, int internal_port, const std::string& description,
                 int lease_seconds) const {
  return Result(UPNP_AddPortMapping(
      control_url.c_str(), service_type.c_str(), std::to_string(external_port).c_str(),
      std::to_string(internal_port).c_str(), host_address.c_str(), description.c_str(), kTcp,
      nullptr, std::to_string(lease_seconds).c_str()));
}

int Gateway::Delete(const PortMapping& mapping) const {
  const char* remote = mapping.remote_host.empty() ? nullptr : mapping.remote_host.c_str();
  return Result(UPNP_DeletePortMapping(control_url.c_str(), service_type.c_str(),
                                       mapping.external_port.c_str(), mapping.protocol.c_str(),
                                       remote));
}

}  // namespace kova::platform
