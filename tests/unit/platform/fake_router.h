// A scripted Internet Gateway Device on the loopback network: it answers searches and keeps port
// mappings as told.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace kova::test {

struct RouterMapping {
  std::string external_port;
  std::string client;
  std::string internal_port;
  std::string description;
  std::string lease = "0";
  std::string protocol = "TCP";
  std::string enabled = "1";
  std::string remote_host = {};

  bool operator==(const RouterMapping&) const = default;
};

// How a server gives its answers.
enum class Manner {
  kAtOnce,
  kDrips,    // a byte now and then, for ever
  kEndless,  // as fast as it goes, for ever
  kSilent,   // nothing, and the line is held
};

// How the router behaves.
struct RouterTraits {
  std::string status = "Connected";
  std::string external_address = "11.22.33.44";  // private ones do not count as connected
  std::string device_type = "InternetGatewayDevice:1";
  int deaf_to_searches = 0;       // so many searches go unanswered
  std::set<std::string> refused;  // external ports that it does not give away
  bool permanent_only = false;    // refuses leases
  bool overwrites = true;         // of mappings that others made; else it refuses
  bool keeps_mappings = false;    // refuses to delete
  int end_of_list = 713;          // how it says so; 0: with an empty answer
  bool endless_list = false;
  int refuses_to_list = 0;           // with that error, whatever the index
  bool ends_what_it_listed = false;  // a mapping's lease ends as soon as it has been shown
  Manner description = Manner::kAtOnce;
  Manner answers = Manner::kAtOnce;  // to everything but the search and the description
  size_t padding = 0;                // bytes of comment in the description
};

class FakeRouter {
 public:
  explicit FakeRouter(RouterTraits traits = {});
  ~FakeRouter();
  FakeRouter(const FakeRouter&) = delete;
  FakeRouter& operator=(const FakeRouter&) = delete;

  void SetTraits(const RouterTraits& traits);
  void SetMappings(const std::vector<RouterMapping>& mappings);
  std::vector<RouterMapping> Mappings();

  // What it was asked to change, in order: "add 80 3600", "delete 80". Forgets them.
  std::vector<std::string> TakeChanges();
  int Searches();  // that it heard
  int ListRequests();

  // Comes back with another control address; what was open is refused.
  void Restart();
  // No longer answers anything.
  void Vanish();

 private:
  using Arguments = std::map<std::string, std::string>;
  void Run();
  void AnswerSearch();
  void AnswerRequest();
  void Torment(int fd, Manner manner);
  std::string Answer(const std::string& action, const Arguments& arguments);
  std::string Add(const Arguments& arguments);
  std::string Delete(const Arguments& arguments);
  std::string List(const Arguments& arguments);
  std::string Find(const Arguments& arguments);
  RouterMapping* Lookup(const std::string& external_port, const std::string& protocol);
  void Listen();

  std::mutex mutex_;
  RouterTraits traits_;
  std::vector<RouterMapping> mappings_;
  std::vector<RouterMapping> ended_;  // still listed, but gone when they are to be deleted
  std::vector<std::string> changes_;
  int searches_ = 0;
  int list_requests_ = 0;
  int ssdp_ = -1;
  int http_ = -1;
  int port_ = 0;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
};

}  // namespace kova::test
