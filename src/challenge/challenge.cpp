#include "challenge/challenge.h"

#include "base/sl_error.h"

namespace kova {

std::shared_ptr<LeChallenge> ChallengeFactory(const std::string& type, HttpClient& http) {
  // make_shared remembers the concrete type, so the last owner runs the concrete destructor.
  if (type == "http-01") return std::make_shared<Http01Challenge>();
  if (type == "dns-01") return std::make_shared<KovaDns01Challenge>(http);
  throw Error(code::kNoNonce, "challenge", "Unknown challenge type.");
}

std::shared_ptr<LeChallenge> ChallengeFactory(const std::string& type, const std::string& domain,
                                              HttpClient& http) {
  if (type == "dns-01") {
    auto challenge = std::make_shared<HookDns01Challenge>();
    if (challenge->isSupport(domain)) return challenge;
  }
  return ChallengeFactory(type, http);
}

}  // namespace kova
