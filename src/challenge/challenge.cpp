#include "challenge/challenge.h"

#include "base/sl_error.h"

namespace kova {

std::shared_ptr<LeChallenge> ChallengeFactory(const std::string& type, HttpClient& http) {
  // make_shared remembers the concrete type, so the last owner runs the concrete destructor.
  if (type == "http-01") return std::make_shared<Http01Challenge>();
  if (type == "dns-01") return std::make_shared<KovaDns01Challenge>(http);
  throw Error(code::kNoNonce, "challenge", "Unknown challenge type.");
}

}  // namespace kova
