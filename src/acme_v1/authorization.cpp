#include <array>
#include <chrono>

#include "acme/reply.h"
#include "acme_v1/client_v1.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v1";
constexpr int kMaximumPolls = 30;
constexpr std::chrono::seconds kPendingPause{2};
constexpr std::array kChallengeMembers = {"type", "uri", "token", "status"};

constexpr char kConnectionProblem[] = "urn:acme:error:connection";
constexpr char kUnauthorizedProblem[] = "urn:acme:error:unauthorized";
constexpr char kUnknownHostProblem[] = "urn:acme:error:unknownHost";

bool IsComplete(const Json::Value& challenge) {
  for (const char* name : kChallengeMembers) {
    if (!HasMember(challenge, name)) return false;
  }
  return true;
}

Json::Value AuthzPayload(const std::string& domain) {
  Json::Value payload(Json::objectValue);
  payload["resource"] = "new-authz";
  payload["identifier"]["type"] = "dns";
  payload["identifier"]["value"] = domain;
  return payload;
}

Json::Value AnswerPayload(LeChallenge& challenge) {
  Json::Value payload(Json::objectValue);
  payload["resource"] = "challenge";
  payload["type"] = challenge.type();
  payload["keyAuthorization"] = challenge.keyAuthorization;
  return payload;
}

}  // namespace

Json::Value AcmeV1Client::NewAuthz(const std::string& domain) {
  DebugStep("==> start new authz.");
  DebugStep("new authz: do new-authz.");
  ShowStage(domain, "asking for the authorization");
  const HttpResponse response = PostJws(Resource("new-authz"), AuthzPayload(domain));
  if (response.status == 400) throw Error(code::kRefused, kTag, "no valid domain name");
  if (response.status != 201) {
    throw Error(code::kProtocol, kTag, "new_authz: unexpect httpcode.");
  }
  Json::Value authz = GetJsonBody(response);
  DebugStep("new authz: setup challenge env.");
  return authz;
}

const Json::Value& AcmeV1Client::PickChallenge(const Json::Value& authz, const std::string& type) {
  if (!HasMember(authz, "challenges")) {
    throw Error(code::kProtocol, kTag, "new_authz has not challenges.");
  }
  const Json::Value& challenges = Member(authz, "challenges");
  if (challenges.isArray()) {
    for (const Json::Value& challenge : challenges) {
      if (IsComplete(challenge) && TextMember(challenge, "type") == type) return challenge;
    }
  }
  throw Error(code::kProtocol, kTag, "Can't find challenges");
}

void AcmeV1Client::DoChallenge(const Json::Value& authz, LeChallenge& challenge) {
  if (TextMember(authz, "status") == "valid") return;
  const std::string type = challenge.type();
  const Json::Value& offered = PickChallenge(authz, type);
  const std::string token = RequiredText(kTag, offered, "token");
  const std::string uri = RequiredText(kTag, offered, "uri");
  const std::string domain = RequiredText(kTag, Member(authz, "identifier"), "value");
  challenge.Set(domain, token, token + "." + Key().Thumbprint());
  ShowStage(domain, "setting up " + type);
  if (!challenge.setup()) {
    throw Error(code::kChallengeSetup, kTag, "Challenge setup is failed.");
  }
  DebugStep("new authz: %s challenge.", type.c_str());
  ShowStage(domain, "waiting for the CA to validate " + type);
  const HttpResponse response = PostJws(uri, AnswerPayload(challenge));
  if (response.status != 202) {
    throw Error(code::kProtocol, kTag, "challenge: unexpect httpcode.");
  }
  DebugStep("new authz: %s check result.", type.c_str());
  AwaitValid(GetLinkUrl(response, "up"), challenge);
}

void AcmeV1Client::AwaitValid(const std::string& url, LeChallenge& challenge) {
  for (int poll = 0; poll < kMaximumPolls; ++poll) {
    const HttpResponse response = Fetch(url);
    if (response.status != 200) throw Error(code::kProtocol, kTag, "unexpect httpcode.");
    const Json::Value authz = GetJsonBody(response);
    const std::string status = RequiredText(kTag, authz, "status");
    if (status == "valid") return;
    if (status == "invalid") ThrowValidationProblem(authz, challenge);
    // Any other status is polled again at once, on purpose; it counts all the same.
    if (status == "pending") WaitVisibly(kPendingPause);
  }
  throw Error(code::kProtocol, kTag, "Authorization timeout.");
}

void AcmeV1Client::ThrowValidationProblem(const Json::Value& authz, LeChallenge& challenge) {
  const Json::Value& problem = Member(PickChallenge(authz, challenge.type()), "error");
  const std::string type = TextMember(problem, "type");
  const std::string detail = TextMember(problem, "detail");
  if (type == kConnectionProblem) {
    int failure = code::kConnection;
    if (retry_with_port_map_ && challenge.type() == "http-01") {
      // One retry in the life of the client: a second name that cannot be reached is final.
      retry_with_port_map_ = false;
      failure = code::kRetryWithPortMap;
    }
    throw SLError::FromServerText(failure, kTag, challenge.domain + ": " + detail);
  }
  const bool refused = type == kUnauthorizedProblem || type == kUnknownHostProblem;
  throw SLError::FromServerText(refused ? code::kRefused : code::kProtocol, kTag, detail);
}

}  // namespace kova
