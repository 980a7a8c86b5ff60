#include <algorithm>
#include <array>

#include "acme/reply.h"
#include "acme_v2/client_v2.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "challenge/challenge.h"
#include "challenge/port_forwarding.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kMaximumPolls = 30;
constexpr std::chrono::seconds kPendingPause{2};

struct ValidationProblem {
  const char* type;
  int code;
};
constexpr std::array<ValidationProblem, 3> kValidationProblems = {{
    {"urn:ietf:params:acme:error:connection", code::kConnection},
    {"urn:ietf:params:acme:error:dns", code::kDns},
    {"urn:ietf:params:acme:error:unauthorized", code::kUnauthorized},
}};

int CodeOfProblem(const std::string& type) {
  for (const ValidationProblem& problem : kValidationProblems) {
    if (type == problem.type) return problem.code;
  }
  return code::kProtocol;
}

// The first challenge of that type for which `usable` holds, or null.
template <typename Usable>
const Json::Value* FindChallenge(const Json::Value& authorization, const std::string& type,
                                 Usable usable) {
  const Json::Value& challenges = Member(authorization, "challenges");
  if (!challenges.isArray()) return nullptr;
  for (const Json::Value& challenge : challenges) {
    if (TextMember(challenge, "type") == type && usable(challenge)) return &challenge;
  }
  return nullptr;
}

[[noreturn]] void ThrowValidationProblem(const Json::Value& authorization,
                                         const std::string& type) {
  if (!HasMember(authorization, "challenges")) {
    throw Error(code::kProtocol, kTag, "new_authz has not challenges.");
  }
  const Json::Value* challenge =
      FindChallenge(authorization, type, [](const Json::Value& candidate) {
        return HasMember(candidate, "url") && HasMember(candidate, "token");
      });
  if (challenge == nullptr) throw Error(code::kProtocol, kTag, "Can't find challenges");
  const Json::Value& problem = Member(*challenge, "error");
  throw SLError::FromServerText(CodeOfProblem(TextMember(problem, "type")), kTag,
                                TextMember(problem, "detail"));
}

}  // namespace

void AcmeV2Client::AuthorizeOrder() {
  ShowStage("", "asking the router to forward ports 80 and 443");
  OpenRouterPorts();  // without it the host may still be reachable
  try {
    for (const std::string& url : authorization_urls_) DoAuthorization(url);
  } catch (...) {
    CloseRouterPorts();
    DebugStep("close port 80.");
    throw;
  }
  CloseRouterPorts();
}

Json::Value AcmeV2Client::FetchAuthorization(const std::string& url) {
  const HttpResponse response = PostAsGet(url);
  if (response.status != 200) {
    throw Error(code::kProtocol, kTag, "new_authz info: unexpect httpcode.");
  }
  return ObjectBody(response);
}

void AcmeV2Client::RespondChallenge(const std::string& url) {
  if (PostJws(url, Json::Value(Json::objectValue)).status != 200) {
    throw Error(code::kProtocol, kTag, "challenge: unexpect httpcode.");
  }
}

void AcmeV2Client::DoAuthorization(const std::string& url) {
  const Json::Value authorization = FetchAuthorization(url);
  if (TextMember(authorization, "status") == "valid") {
    DebugStep("Get valid without setup challenge, may cache?");
    return;
  }
  const std::string name = RequiredText(Member(authorization, "identifier"), "value");
  for (size_t index = 0; index < challenge_types_.size();) {
    const std::string type = challenge_types_[index];
    const std::shared_ptr<LeChallenge> challenge = ChallengeFactory(type);
    if (!challenge->isSupport(name)) {
      DebugStep("%s is not support for %s", type.c_str(), name.c_str());
      DropChallengeType(type);  // for later authorizations too, on purpose
      continue;
    }
    if (TryChallenge(url, authorization, *challenge)) return;
    ++index;
  }
  challenge_types_.clear();
  throw Error(code::kProtocol, kTag, "do new auth by path: failed to do challenge.");
}

// False when the authorization does not offer the challenge's type.
bool AcmeV2Client::TryChallenge(const std::string& url, const Json::Value& authorization,
                                LeChallenge& challenge) {
  const std::string type = challenge.type();
  const Json::Value* offered =
      FindChallenge(authorization, type, [](const Json::Value&) { return true; });
  if (offered == nullptr) return false;
  const std::string name = RequiredText(Member(authorization, "identifier"), "value");
  const std::string token = RequiredText(*offered, "token");
  DebugStep("Setup challenge for %s with type %s", name.c_str(), type.c_str());
  ShowStage(name, "setting up " + type);
  challenge.Set(name, token, token + "." + key_->Thumbprint());
  if (!challenge.setup()) {
    DebugStep("Failed to setup challenge for %s with type %s.", name.c_str(), type.c_str());
    throw SLError(code::kLocal, kTag, __LINE__, "Failed to setup challegne for %s of %s",
                  name.c_str(), type.c_str());
  }
  Validate(url, TextMember(*offered, "url"), name, type);
  return true;
}

void AcmeV2Client::Validate(const std::string& authorization_url, const std::string& challenge_url,
                            const std::string& name, const std::string& type) {
  try {
    ShowStage(name, "waiting for the CA to validate " + type);
    RespondChallenge(challenge_url);
    WaitAuthorization(authorization_url, type);
  } catch (...) {
    DropChallengeType(type);
    DebugStep("Failed to do challenge for %s with type %s.", name.c_str(), type.c_str());
    throw;
  }
}

void AcmeV2Client::DropChallengeType(const std::string& type) {
  challenge_types_.erase(std::remove(challenge_types_.begin(), challenge_types_.end(), type),
                         challenge_types_.end());
}

void AcmeV2Client::WaitAuthorization(const std::string& url, const std::string& type) {
  for (int poll = 0; poll < kMaximumPolls; ++poll) {
    const Json::Value authorization = FetchAuthorization(url);
    if (!HasMember(authorization, "status")) {
      throw Error(code::kProtocol, kTag, "unexpect json response.");
    }
    const std::string status = TextMember(authorization, "status");
    if (status == "valid") return;
    if (status == "invalid") ThrowValidationProblem(authorization, type);
    // Any other status is polled again at once, on purpose; it counts all the same.
    if (status == "pending") WaitVisibly(kPendingPause);
  }
  throw Error(code::kRefused, kTag, "Autuhorization timeout");
}

}  // namespace kova
