// Proofs of control over a name. A challenge object lives for one authorization: made, filled with
// Set, set up, validated by the CA, destroyed; its destruction undoes what setup() did.
#pragma once

#include <memory>
#include <string>

#include "platform/device.h"
#include "platform/fd.h"

namespace kova {

class HttpClient;

class LeChallenge {
 public:
  // Puts the response in place; true on success.
  virtual bool setup() = 0;
  // Removes what setup() put in place; safe when it did nothing.
  virtual void teardown() = 0;
  // The ACME challenge type.
  virtual std::string type() = 0;
  // Whether this type can serve that name.
  virtual bool isSupport(const std::string& domain) = 0;

  LeChallenge(const LeChallenge&) = delete;
  LeChallenge& operator=(const LeChallenge&) = delete;

  void Set(const std::string& name, const std::string& sent, const std::string& proof) {
    domain = name;
    token = sent;
    keyAuthorization = proof;
  }

  std::string domain;            // the identifier; a wildcard's base name
  std::string token;             // as the CA sent it: not to be trusted
  std::string keyAuthorization;  // token "." thumbprint, built by the client

 protected:
  LeChallenge() = default;
  // Not virtual on purpose: objects are destroyed as their concrete type, whose destructor tears
  // down first. Hold one by value or by the factory's shared owner.
  ~LeChallenge() = default;
};

// A file under the web root that the host's web server publishes on port 80. Setting one up removes
// what killed runs left there of the same account's.
class Http01Challenge final : public LeChallenge {
 public:
  ~Http01Challenge();
  bool setup() override;
  void teardown() override;
  std::string type() override;
  bool isSupport(const std::string& domain) override;

 private:
  platform::Fd held_;  // the token's file, locked (flock) while it is published
};

// A TXT record placed through the vendor's dynamic-DNS service; serves names that contain the
// host's own DDNS name.
class KovaDns01Challenge final : public LeChallenge {
 public:
  // The service is asked through `http`, which outlives the challenge.
  explicit KovaDns01Challenge(HttpClient& http) : http_(http) {}
  ~KovaDns01Challenge();
  bool setup() override;
  void teardown() override;
  std::string type() override;
  bool isSupport(const std::string& domain) override;

  // The update request, or an empty string when the settings file cannot be used.
  [[nodiscard]] std::string BuildDdnsUrl(bool create, const std::string& hostname) const;

 private:
  bool CreateRecord();
  void AwaitRecord();

  char serial_[36] = {};
  KOVA_TOLU_ACCOUNT account_ = {};
  std::string txtValue_;
  HttpClient& http_;
  bool isSetup_ = false;  // the service accepted the create request
};

// A TXT record placed by the hook "dns-txt", `add` or `remove` with the record's name and value;
// serves every name that the vendor's service does not, wildcards included. Each value is its own:
// several at one name come and go on their own.
class HookDns01Challenge final : public LeChallenge {
 public:
  // Whether there is such a hook on this host. One that cannot be used is logged.
  static bool IsAvailable();

  ~HookDns01Challenge();
  // True once the hook says that the zone's servers show the record.
  bool setup() override;
  // Also after a failed setup, which may have gone half way. A failure is one line in the log.
  void teardown() override;
  std::string type() override;
  bool isSupport(const std::string& domain) override;

 private:
  [[nodiscard]] int Run(const char* action) const;

  std::string txtValue_;
  bool isSetup_ = false;  // the hook was asked to add the record
};

// "http-01" or "dns-01", exactly; anything else throws SLError 204 "Unknown challenge type.". What
// a challenge asks of other servers goes through `http`.
std::shared_ptr<LeChallenge> ChallengeFactory(const std::string& type, HttpClient& http);

// The same, for that name: dns-01 is the hook's where it serves the name.
std::shared_ptr<LeChallenge> ChallengeFactory(const std::string& type, const std::string& domain,
                                              HttpClient& http);

// True when the host's own DDNS name occurs, ignoring case, anywhere in `name`. A substring test,
// not a suffix test: deliberate. False when the host has no DDNS name.
bool IsKovaDdnsHost(const std::string& name);

// Nothing but the characters of host names, a wildcard's star included.
bool IsHostName(const std::string& name);

// True when the own name server of the vendor's dynamic-DNS zone shows a TXT record of
// "_acme-challenge." + domain that holds `expected`. Uses the process-wide resolver state and
// restores it.
bool CheckTxtRecord(const std::string& domain, const std::string& expected);

// Forwards ports 80 and 443 of the home router to this host, for the time in which the CA looks.
// True when the router confirmed port 80. Every failure is logged at debug level 1.
bool OpenRouterPorts();

// Removes the forwarding; failures are silent.
void CloseRouterPorts();

}  // namespace kova
