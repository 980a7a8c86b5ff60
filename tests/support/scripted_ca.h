// An ACME v2 CA on loopback that grants everything, except what the test scripts otherwise:
//
//   ScriptedCa ca;
//   ca.Once("POST /new-order", ScriptedCa::Problem(429, "rateLimited", "too many"));
//   ... run the client against ca.DirectoryUrl() ...
//   EXPECT_EQ(ca.Signed("POST /new-order").at(0).payload, "...\n");
//
// Its resources: /directory, /new-nonce, /new-account (account /account/1), /new-order (order
// /order/1), /authz/N for the N-th name of the order from 0 on, /challenge/N/TYPE,
// /order/1/finalize, /certificate/1, /revoke and /renewal-info/ID if it is given. Nothing of what
// it receives is checked; assert it on the requests.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "jws_reader.h"
#include "loopback_server.h"

namespace kova::test {

class ScriptedCa {
 public:
  ScriptedCa();

  [[nodiscard]] std::string Url(const std::string& path) const { return server_.Url(path); }
  [[nodiscard]] std::string DirectoryUrl() const { return Url("/directory"); }
  [[nodiscard]] std::string AccountUrl() const { return Url("/account/1"); }

  // The next `times` requests of "METHOD /path" get that reply; calls queue up.
  void Once(const std::string& route, const HttpReply& reply, int times = 1);
  // What the route answers once its queue is empty.
  void Always(const std::string& route, const HttpReply& reply);

  // Forgets every reply that was put in the way, and the requests.
  void Reset();
  // Is called on the CA's thread before each answer to the route.
  void Before(const std::string& route, std::function<void()> look);

  // Every reply carries the next nonce, "nonce-1", "nonce-2", ..., unless it has a Replay-Nonce of
  // its own or this was called.
  void StopNonces();
  // The directory names a resource /renewal-info from now on, which has that answer to whoever asks
  // for a certificate (until Once or Always say otherwise).
  void GiveRenewalInfo(const HttpReply& reply);
  // {"suggestedWindow": {"start": START, "end": END}}
  static std::string Window(const std::string& start, const std::string& end);
  // The challenges that authorizations offer; http-01 and dns-01 at first.
  void Offer(const std::vector<std::string>& types);

  // Everything received so far, oldest first; optionally of one route alone.
  [[nodiscard]] std::vector<std::string> Routes() const { return server_.Routes(); }
  [[nodiscard]] std::vector<HttpRequest> Requests(const std::string& route) const;
  [[nodiscard]] std::vector<Jws> Signed(const std::string& route = {}) const;
  [[nodiscard]] size_t Count(const std::string& route) const { return Requests(route).size(); }

  void ClearRequests() { server_.ClearRequests(); }

  // Documents, for replies that differ from the usual ones in a detail.
  [[nodiscard]] std::string Directory() const;
  [[nodiscard]] std::string Order(const std::string& status, bool with_certificate) const;
  [[nodiscard]] std::string Authorization(const std::string& name, const std::string& status) const;
  // {"type": "urn:ietf:params:acme:error:TYPE", "detail": DETAIL}
  static HttpReply Problem(int status, const std::string& type, const std::string& detail);
  // An authorization whose challenge of that type failed for that reason.
  [[nodiscard]] std::string FailedAuthorization(const std::string& name, const std::string& type,
                                                const std::string& problem,
                                                const std::string& detail) const;
  static std::string Token(const std::string& name) { return EncodeBase64Url(name); }

  // Two certificates in PEM's outer form, the way /certificate/1 sends them.
  static std::string Leaf();
  static std::string Issuer();
  static std::string Chain() { return Leaf() + "\n" + Issuer(); }

 private:
  struct Name {
    std::string name;
    std::string status = "pending";
  };

  HttpReply Answer(const HttpRequest& request);
  HttpReply Scripted(const HttpRequest& request);
  HttpReply Usual(const HttpRequest& request);
  HttpReply NewOrder(const HttpRequest& request);
  HttpReply OfName(const HttpRequest& request);
  [[nodiscard]] std::string AuthorizationOf(size_t index, const Name& name) const;

  mutable std::mutex mutex_;
  std::map<std::string, std::deque<HttpReply>> once_;
  std::map<std::string, HttpReply> always_;
  std::map<std::string, std::function<void()>> before_;
  std::vector<std::string> types_ = {"http-01", "dns-01"};
  std::vector<Name> names_;
  int next_nonce_ = 1;
  bool gives_nonces_ = true;
  std::optional<HttpReply> renewal_info_;
  LoopbackServer server_;  // last: its thread uses the rest
};

}  // namespace kova::test
