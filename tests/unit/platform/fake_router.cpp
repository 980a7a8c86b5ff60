#include "fake_router.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <regex>
#include <utility>

#include "scratch.h"

namespace kova::test {
namespace {

constexpr char kConnection[] = "urn:schemas-upnp-org:service:WANIPConnection:1";

sockaddr_in AddressOf(in_addr_t host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = host;
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

int Bound(int type, in_addr_t host, int port) {
  const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = AddressOf(host, port);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  return fd;
}

void Send(int fd, const std::string& status, const std::string& body) {
  const std::string reply = "HTTP/1.1 " + status +
                            "\r\nContent-Type: text/xml\r\nConnection: close\r\nContent-Length: " +
                            std::to_string(body.size()) + "\r\n\r\n" + body;
  send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
}

// Header and, as far as its length is told, body.
std::string Receive(int fd) {
  static const std::regex length(R"(\r\nContent-Length: (\d+)\r\n)", std::regex::icase);
  std::string request;
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = recv(fd, buffer.data(), buffer.size(), 0)) > 0) {
    request.append(buffer.data(), static_cast<size_t>(count));
    const size_t end = request.find("\r\n\r\n");
    if (end == std::string::npos) continue;
    std::smatch match;
    const size_t body = std::regex_search(request, match, length) ? std::stoul(match[1]) : 0;
    if (request.size() >= end + 4 + body) break;
  }
  return request;
}

std::string Element(const std::string& name, const std::string& value) {
  return "<" + name + ">" + value + "</" + name + ">";
}

std::string Service(const std::string& type, const std::string& control) {
  return "<service>" + Element("serviceType", "urn:schemas-upnp-org:service:" + type) +
         Element("serviceId", "urn:upnp-org:serviceId:" + type) + Element("SCPDURL", "/scpd.xml") +
         Element("controlURL", control) + Element("eventSubURL", "/evt") + "</service>";
}

std::string Device(const std::string& type, const std::string& services,
                   const std::string& devices) {
  std::string text = "<device>" + Element("deviceType", "urn:schemas-upnp-org:device:" + type);
  if (!services.empty()) text += Element("serviceList", services);
  if (!devices.empty()) text += Element("deviceList", devices);
  return text + "</device>";
}

std::string Description(const std::string& type) {
  const std::string connection =
      Device("WANConnectionDevice:1", Service("WANIPConnection:1", "/ctl"), "");
  const std::string wan =
      Device("WANDevice:1", Service("WANCommonInterfaceConfig:1", "/cif"), connection);
  return "<?xml version=\"1.0\"?><root xmlns=\"urn:schemas-upnp-org:device-1-0\">" +
         Device(type, "", wan) + "</root>";
}

std::string Refusal(int code) {
  return "<s:Fault><faultcode>s:Client</faultcode><detail><UPnPError>" +
         Element("errorCode", std::to_string(code)) + "</UPnPError></detail></s:Fault>";
}

bool IsRefusal(const std::string& answer) { return answer.starts_with("<s:Fault>"); }

}  // namespace

FakeRouter::FakeRouter(RouterTraits traits) : traits_(std::move(traits)) {
  Shell("ip link set lo multicast on && ip route replace 239.0.0.0/8 dev lo");
  ssdp_ = Bound(SOCK_DGRAM, INADDR_ANY, 1900);
  ip_mreq group{};
  group.imr_multiaddr.s_addr = inet_addr("239.255.255.250");
  group.imr_interface.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(setsockopt(ssdp_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &group, sizeof group), 0);
  Listen();
  thread_ = std::thread([this] { Run(); });
}

FakeRouter::~FakeRouter() {
  stopping_ = true;
  thread_.join();
  close(ssdp_);
  if (http_ >= 0) close(http_);
}

void FakeRouter::Listen() {
  http_ = Bound(SOCK_STREAM, htonl(INADDR_LOOPBACK), 0);
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(http_, reinterpret_cast<sockaddr*>(&address), &size);
  port_ = ntohs(address.sin_port);
  EXPECT_EQ(listen(http_, 16), 0);
}

void FakeRouter::SetTraits(const RouterTraits& traits) {
  const std::scoped_lock lock(mutex_);
  traits_ = traits;
}

void FakeRouter::SetMappings(const std::vector<RouterMapping>& mappings) {
  const std::scoped_lock lock(mutex_);
  mappings_ = mappings;
}

std::vector<RouterMapping> FakeRouter::Mappings() {
  const std::scoped_lock lock(mutex_);
  return mappings_;
}

std::vector<std::string> FakeRouter::TakeChanges() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(changes_, {});
}

int FakeRouter::Searches() {
  const std::scoped_lock lock(mutex_);
  return searches_;
}

int FakeRouter::ListRequests() {
  const std::scoped_lock lock(mutex_);
  return list_requests_;
}

void FakeRouter::Restart() {
  const std::scoped_lock lock(mutex_);
  const int old = http_;
  Listen();
  close(old);
}

void FakeRouter::Vanish() {
  const std::scoped_lock lock(mutex_);
  close(std::exchange(http_, -1));
  traits_.deaf_to_searches = 1000;
}

void FakeRouter::Run() {
  while (!stopping_) {
    std::array<pollfd, 2> events{{{ssdp_, POLLIN, 0}, {-1, POLLIN, 0}}};
    {
      const std::scoped_lock lock(mutex_);
      events[1].fd = http_;
    }
    poll(events.data(), events.size(), 20);
    if ((events[0].revents & POLLIN) != 0) AnswerSearch();
    if ((events[1].revents & POLLIN) != 0) AnswerRequest();
  }
}

void FakeRouter::AnswerSearch() {
  static const std::regex target(R"(\r\nST: ?(\S+)\r\n)");
  std::array<char, 2048> buffer{};
  sockaddr_in from{};
  socklen_t size = sizeof from;
  const ssize_t count =
      recvfrom(ssdp_, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
  if (count <= 0) return;
  const std::string search(buffer.data(), static_cast<size_t>(count));
  std::smatch match;
  if (!search.starts_with("M-SEARCH ") || !std::regex_search(search, match, target)) return;
  const std::scoped_lock lock(mutex_);
  ++searches_;
  if (traits_.deaf_to_searches-- > 0) return;
  const std::string type = match[1];
  if (type.find(traits_.device_type) == std::string::npos && type != kConnection) return;
  const std::string reply =
      "HTTP/1.1 200 OK\r\nCACHE-CONTROL: max-age=120\r\nST: " + type + "\r\nUSN: uuid:1::" + type +
      "\r\nEXT:\r\nSERVER: fake\r\nLOCATION: " + "http://127.0.0.1:" + std::to_string(port_) +
      "/root.xml\r\n\r\n";
  sendto(ssdp_, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&from), size);
}

// Until the client has had enough.
void FakeRouter::Torment(int fd, Manner manner) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n<?xml ";
  const std::string chunk(manner == Manner::kDrips ? 1 : 65536, 'x');
  if (manner != Manner::kSilent) send(fd, head.data(), head.size(), MSG_NOSIGNAL);
  while (!stopping_) {
    pollfd peer{fd, POLLIN | POLLRDHUP, 0};
    if (poll(&peer, 1, manner == Manner::kEndless ? 0 : 50) != 0) return;
    if (manner == Manner::kSilent) continue;
    if (send(fd, chunk.data(), chunk.size(), MSG_NOSIGNAL) < 0) return;
  }
}

void FakeRouter::AnswerRequest() {
  static const std::regex action_form(R"(\r\nSOAPAction: "[^"#]*#(\w+)\")", std::regex::icase);
  static const std::regex argument_form(R"(<(New\w+)>([^<]*)</)");
  const std::scoped_lock lock(mutex_);
  const int fd = accept4(http_, nullptr, nullptr, SOCK_CLOEXEC);
  if (fd < 0) return;
  const std::string request = Receive(fd);
  std::smatch match;
  if (!std::regex_search(request, match, action_form)) {
    if (traits_.description != Manner::kAtOnce) {
      Torment(fd, traits_.description);
    } else {
      Send(fd, "200 OK",
           Description(traits_.device_type) + "<!--" + std::string(traits_.padding, 'x') + "-->");
    }
    close(fd);
    return;
  }
  if (traits_.answers != Manner::kAtOnce) {
    Torment(fd, traits_.answers);
    close(fd);
    return;
  }
  const std::string action = match[1];
  Arguments arguments;
  for (auto it = std::sregex_iterator(request.begin(), request.end(), argument_form);
       it != std::sregex_iterator(); ++it) {
    arguments[(*it)[1]] = (*it)[2];
  }
  std::string answer = Answer(action, arguments);
  const std::string status = IsRefusal(answer) ? "500 Internal Server Error" : "200 OK";
  if (!IsRefusal(answer)) {
    answer = "<u:" + action + "Response xmlns:u=\"" + kConnection + "\">" + answer +
             "</u:" + action + "Response>";
  }
  Send(fd, status,
       "<?xml version=\"1.0\"?><s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\">"
       "<s:Body>" +
           answer + "</s:Body></s:Envelope>");
  close(fd);
}

std::string FakeRouter::Answer(const std::string& action, const Arguments& arguments) {
  using Handler = std::string (FakeRouter::*)(const Arguments&);
  static const std::map<std::string, Handler> handlers = {
      {"AddPortMapping", &FakeRouter::Add},
      {"DeletePortMapping", &FakeRouter::Delete},
      {"GetGenericPortMappingEntry", &FakeRouter::List},
      {"GetSpecificPortMappingEntry", &FakeRouter::Find}};
  if (action == "GetStatusInfo") {
    return Element("NewConnectionStatus", traits_.status) + Element("NewLastConnectionError", "") +
           Element("NewUptime", "7");
  }
  if (action == "GetExternalIPAddress") {
    return Element("NewExternalIPAddress", traits_.external_address);
  }
  const auto handler = handlers.find(action);
  return handler == handlers.end() ? Refusal(401) : (this->*handler->second)(arguments);
}

RouterMapping* FakeRouter::Lookup(const std::string& external_port, const std::string& protocol) {
  const auto found =
      std::find_if(mappings_.begin(), mappings_.end(), [&](const RouterMapping& mapping) {
        return mapping.external_port == external_port && mapping.protocol == protocol;
      });
  return found == mappings_.end() ? nullptr : &*found;
}

std::string FakeRouter::Add(const Arguments& arguments) {
  const RouterMapping wanted{
      arguments.at("NewExternalPort"),  arguments.at("NewInternalClient"),
      arguments.at("NewInternalPort"),  arguments.at("NewPortMappingDescription"),
      arguments.at("NewLeaseDuration"), arguments.at("NewProtocol"),
      arguments.at("NewEnabled"),       arguments.at("NewRemoteHost")};
  changes_.push_back("add " + wanted.external_port + " " + wanted.lease);
  if (traits_.refused.contains(wanted.external_port)) return Refusal(606);
  if (traits_.permanent_only && wanted.lease != "0") return Refusal(725);
  RouterMapping* existing = Lookup(wanted.external_port, wanted.protocol);
  if (existing != nullptr && existing->client != wanted.client && !traits_.overwrites) {
    return Refusal(718);
  }
  if (existing != nullptr) {
    *existing = wanted;
  } else {
    mappings_.push_back(wanted);
  }
  return "";
}

std::string FakeRouter::Delete(const Arguments& arguments) {
  const std::string port = arguments.at("NewExternalPort");
  changes_.push_back("delete " + port);
  if (traits_.keeps_mappings) return Refusal(606);
  for (const RouterMapping& ended : std::exchange(ended_, {})) std::erase(mappings_, ended);
  const RouterMapping* existing = Lookup(port, arguments.at("NewProtocol"));
  if (existing == nullptr) return Refusal(714);
  std::erase(mappings_, RouterMapping(*existing));
  return "";
}

std::string FakeRouter::List(const Arguments& arguments) {
  ++list_requests_;
  if (traits_.refuses_to_list != 0) return Refusal(traits_.refuses_to_list);
  size_t index = std::stoul(arguments.at("NewPortMappingIndex"));
  if (traits_.endless_list && !mappings_.empty()) index %= mappings_.size();
  if (index >= mappings_.size()) {
    return traits_.end_of_list == 0 ? "" : Refusal(traits_.end_of_list);
  }
  const RouterMapping mapping = mappings_[index];
  if (traits_.ends_what_it_listed) ended_.push_back(mapping);
  return Element("NewRemoteHost", mapping.remote_host) +
         Element("NewExternalPort", mapping.external_port) +
         Element("NewProtocol", mapping.protocol) +
         Element("NewInternalPort", mapping.internal_port) +
         Element("NewInternalClient", mapping.client) + Element("NewEnabled", mapping.enabled) +
         Element("NewPortMappingDescription", mapping.description) +
         Element("NewLeaseDuration", mapping.lease);
}

std::string FakeRouter::Find(const Arguments& arguments) {
  const RouterMapping* mapping =
      Lookup(arguments.at("NewExternalPort"), arguments.at("NewProtocol"));
  if (mapping == nullptr) return Refusal(714);
  return Element("NewInternalPort", mapping->internal_port) +
         Element("NewInternalClient", mapping->client) + Element("NewEnabled", mapping->enabled) +
         Element("NewPortMappingDescription", mapping->description) +
         Element("NewLeaseDuration", mapping->lease);
}

}  // namespace kova::test
