// A scripted DNS server on 127.0.0.1, port 53, over UDP and TCP.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kova::test {

struct DnsQuery {
  std::string bytes;  // the whole message
  std::string name;   // asked for, as sent
  int type = 0;
  bool tcp = false;
};

struct DnsRecord {
  std::string owner;
  std::string rdata;
  uint16_t type = 16;  // TXT
};

constexpr int kNameError = 3;
constexpr uint16_t kTypeA = 1;
constexpr uint16_t kTypeCname = 5;

// TXT data of one or more strings of at most 255 bytes.
std::string TxtData(const std::vector<std::string>& strings);
// A domain name in wire form; "" or "." is the root.
std::string WireName(const std::string& name);
// A whole reply to the query.
std::string DnsReply(const DnsQuery& query, const std::vector<DnsRecord>& answers, int rcode = 0);
// The same with the flag that asks the client to come again over TCP.
std::string TruncatedReply(const DnsQuery& query);

class DnsServer {
 public:
  // The reply's bytes, or nothing to stay silent.
  using Handler = std::function<std::string(const DnsQuery&)>;

  explicit DnsServer(Handler handler);
  ~DnsServer();
  DnsServer(const DnsServer&) = delete;
  DnsServer& operator=(const DnsServer&) = delete;

  [[nodiscard]] std::vector<DnsQuery> Queries() const;

 private:
  void Run();
  void ServeUdp();
  void ServeTcp();
  std::string Reply(const std::string& bytes, bool tcp);

  Handler handler_;
  int udp_;
  int tcp_;
  std::atomic<bool> stopping_ = false;
  mutable std::mutex mutex_;
  std::vector<DnsQuery> queries_;
  std::thread thread_;
};

}  // namespace kova::test
