#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <resolv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>

#include "base/debug.h"
#include "challenge/challenge.h"
#include "platform/aside.h"
#include "platform/device.h"

namespace kova {
namespace {

constexpr size_t kBufferSize = 4096;
// The C library waits ten seconds for a server that is silent, and for ever for one that goes on by
// TCP and then sends nothing.
constexpr std::chrono::seconds kPatience{15};

struct AddressListFree {
  void operator()(addrinfo* list) const noexcept { freeaddrinfo(list); }
};
using AddressListPtr = std::unique_ptr<addrinfo, AddressListFree>;

// Reads the system's resolver configuration again at the end of a scope.
class ResolverRestorer {
 public:
  ResolverRestorer() = default;
  ~ResolverRestorer() { res_init(); }
  ResolverRestorer(const ResolverRestorer&) = delete;
  ResolverRestorer& operator=(const ResolverRestorer&) = delete;
};

AddressListPtr Resolve(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  if (getaddrinfo(host.c_str(), nullptr, &hints, &list) != 0) return nullptr;
  return AddressListPtr(list);
}

void UseOnlyNameServer(const addrinfo& server) {
  if ((_res.options & RES_INIT) == 0) res_init();  // or the first query would do it, undoing ours
  _res.nsaddr_list[0] = *reinterpret_cast<const sockaddr_in*>(server.ai_addr);
  _res.nsaddr_list[0].sin_port = htons(NAMESERVER_PORT);
  _res.nscount = 1;
}

// Whether that record of the answer is of the name asked for and holds the expected text.
bool RecordHolds(ns_msg& reply, int index, const std::string& name, const std::string& expected) {
  ns_rr record;
  if (ns_parserr(&reply, ns_s_an, index, &record) != 0) return false;
  const std::string owner = *ns_rr_name(record) == '\0' ? "." : ns_rr_name(record);
  if (owner != name) return false;  // byte by byte, case included
  std::array<char, kBufferSize> text{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  // The printed form, not the raw strings: the expected text may stand anywhere in it.
  if (ns_sprintrr(&reply, &record, nullptr, nullptr, text.data(), text.size()) < 0) return false;
#pragma GCC diagnostic pop
  DebugDetail("DNS Anser: %s", text.data());
  return std::string(text.data()).find(expected) != std::string::npos;
}

bool AnswerHolds(const std::string& name, const std::string& expected) {
  std::array<unsigned char, kBufferSize> answer{};
  const int length = res_query(name.c_str(), ns_c_in, ns_t_txt, answer.data(), answer.size());
  if (length < 0) {
    DebugStep("failed to query TXT dns %s:%d %s", name.c_str(), length, std::strerror(errno));
    return false;
  }
  // A reply that did not fit reports its full length.
  const int received = std::min(length, static_cast<int>(answer.size()));
  ns_msg reply;
  if (ns_initparse(answer.data(), received, &reply) != 0) return false;
  for (int index = 0; index < ns_msg_count(reply, ns_s_an); ++index) {
    if (!RecordHolds(reply, index, name, expected)) continue;
    DebugStep("DNS get ready %s", expected.c_str());
    return true;
  }
  return false;
}

bool Probe(const std::string& domain, const std::string& expected) {
  const std::string host = platform::DdnsNameServer();
  const AddressListPtr servers = Resolve(host);
  if (!servers) {
    DebugStep("failed to query dns ip %s", host.c_str());
    return false;
  }
  UseOnlyNameServer(*servers);
  return AnswerHolds("_acme-challenge." + domain, expected);
}

}  // namespace

bool CheckTxtRecord(const std::string& domain, const std::string& expected) {
  const ResolverRestorer restorer;
  // A name server that is silent would keep a run from ending, for as long as it likes.
  return platform::AskAside([&] { return Probe(domain, expected); }, kPatience);
}

}  // namespace kova
