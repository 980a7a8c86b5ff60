// Proves control of an order's names. Owns the challenge types that may still be tried: one that
// cannot serve a name, or whose validation failed, is used up for the life of the object.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "acme_v2/order.h"
#include "acme_v2/session.h"
#include "challenge/challenge.h"

namespace kova {

class Authorizer {
 public:
  // "dns-01" before "http-01", unless the settings skip it; says so when they could not be read.
  explicit Authorizer(const Settings& settings);

  // Every authorization of the order in turn, while the router forwards the ports.
  void AuthorizeOrder(Session& session, const Order& order);

  // Proves one authorization with the first type that serves it.
  void DoAuthorization(Session& session, const std::string& url);

  // The types left, in order of preference.
  [[nodiscard]] const std::vector<std::string>& Types() const { return types_; }

  // Whether a type was used up since the last BeginAttempt: then another attempt goes another way.
  [[nodiscard]] bool TypeUsedUp() const { return type_used_up_; }
  void BeginAttempt() { type_used_up_ = false; }

 private:
  void Prove(Session& session, const std::string& url, const Json::Value& authorization,
             const std::string& name);
  bool TryChallenge(Session& session, const std::string& url, const Json::Value& authorization,
                    LeChallenge& challenge);
  void Validate(Session& session, const std::string& authorization_url,
                const std::string& challenge_url, const LeChallenge& challenge,
                const std::string& type);
  void UseUp(const std::string& type);

  std::vector<std::string> types_;
  bool type_used_up_ = false;
};

}  // namespace kova
