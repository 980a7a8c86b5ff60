#include "platform/upnp.h"

#include <fcntl.h>
#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>

#include <array>
#include <utility>

#include "platform/fd.h"

namespace kova::platform {
namespace {

constexpr unsigned char kTimeToLive = 2;
constexpr int kRoundMilliseconds = 1000;
// One round each, the second only when the first found nothing. Every gateway answers to the first
// name; its connection service in the second round makes up for a lost packet.
constexpr std::array<const char*, 3> kSearchedFor = {
    "urn:schemas-upnp-org:device:InternetGatewayDevice:1",
    "urn:schemas-upnp-org:service:WANIPConnection:1", nullptr};
constexpr int kConnectedGateway = 1;
constexpr int kMostMappings = 1024;  // a router that never comes to an end of its list
constexpr char kTcp[] = "TCP";

struct FreeDevices {
  void operator()(UPNPDev* list) const { freeUPNPDevlist(list); }
};

// The library tells its troubles on standard error, where they mean nothing to the user.
class QuietStandardError {
 public:
  QuietStandardError() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    const Fd nowhere(open("/dev/null", O_WRONLY | O_CLOEXEC));
    if (saved_ && nowhere) dup2(nowhere.Get(), STDERR_FILENO);
  }
  ~QuietStandardError() {
    if (saved_) dup2(saved_.Get(), STDERR_FILENO);
  }
  QuietStandardError(const QuietStandardError&) = delete;
  QuietStandardError& operator=(const QuietStandardError&) = delete;

 private:
  Fd saved_;
};

int Result(int code) {
  if (code == UPNPCOMMAND_SUCCESS) return 0;
  if (code == UPNPCOMMAND_HTTP_ERROR) return kGatewayUnreachable;
  return code > 0 ? code : upnp_error::kActionFailed;
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

struct Gateway::Device {
  Device() = default;
  ~Device() { FreeUPNPUrls(&urls); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  [[nodiscard]] const char* Url() const { return urls.controlURL; }
  [[nodiscard]] const char* Type() const { return data.first.servicetype; }

  UPNPUrls urls{};
  IGDdatas data{};
};

Gateway::Gateway(std::unique_ptr<Device> device, std::string host_address)
    : device_(std::move(device)), host_address_(std::move(host_address)) {}

Gateway::~Gateway() = default;

std::unique_ptr<Gateway> Gateway::Discover() {
  int error = UPNPDISCOVER_SUCCESS;
  const QuietStandardError quiet;
  const std::unique_ptr<UPNPDev, FreeDevices> devices(
      upnpDiscoverDevices(kSearchedFor.data(), kRoundMilliseconds, nullptr, nullptr,
                          UPNP_LOCAL_PORT_ANY, 0, kTimeToLive, &error, 0));
  if (devices == nullptr) return nullptr;
  auto device = std::make_unique<Device>();
  std::array<char, 64> host{};
#if MINIUPNPC_API_VERSION >= 18
  const int found = UPNP_GetValidIGD(devices.get(), &device->urls, &device->data, host.data(),
                                     static_cast<int>(host.size()), nullptr, 0);
#else
  const int found = UPNP_GetValidIGD(devices.get(), &device->urls, &device->data, host.data(),
                                     static_cast<int>(host.size()));
#endif
  if (found != kConnectedGateway) return nullptr;
  return std::unique_ptr<Gateway>(new Gateway(std::move(device), host.data()));
}

int Gateway::List(std::vector<PortMapping>& mappings) const {
  const QuietStandardError quiet;
  for (int index = 0; index < kMostMappings; ++index) {
    Entry entry;
    const int result = Result(UPNP_GetGenericPortMappingEntry(
        device_->Url(), device_->Type(), std::to_string(index).c_str(), entry.external_port.data(),
        entry.client.data(), entry.internal_port.data(), entry.protocol.data(),
        entry.description.data(), entry.enabled.data(), entry.remote_host.data(),
        entry.lease.data()));
    if (result == kGatewayUnreachable) return result;
    // Routers do not agree on the error that ends the list.
    if (result != 0) return 0;
    mappings.push_back(entry.Mapping());
  }
  return 0;
}

int Gateway::Find(int external_port, std::optional<PortMapping>& mapping) const {
  const QuietStandardError quiet;
  const std::string port = std::to_string(external_port);
  Entry entry;
  const int result = Result(UPNP_GetSpecificPortMappingEntry(
      device_->Url(), device_->Type(), port.c_str(), kTcp, nullptr, entry.client.data(),
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
  const QuietStandardError quiet;
  return Result(UPNP_AddPortMapping(
      device_->Url(), device_->Type(), std::to_string(external_port).c_str(),
      std::to_string(internal_port).c_str(), host_address_.c_str(), description.c_str(), kTcp,
      nullptr, std::to_string(lease_seconds).c_str()));
}

int Gateway::Delete(const PortMapping& mapping) const {
  const QuietStandardError quiet;
  const char* remote = mapping.remote_host.empty() ? nullptr : mapping.remote_host.c_str();
  return Result(UPNP_DeletePortMapping(device_->Url(), device_->Type(),
                                       mapping.external_port.c_str(), mapping.protocol.c_str(),
                                       remote));
}

}  // namespace kova::platform
