#include "acme_v2/authorization.h"

#include <array>
#include <chrono>

#include "acme/reply.h"
#include "acme_v2/patience.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kMaximumPolls = 30;
constexpr std::chrono::seconds kPendingPause{2};
constexpr std::chrono::milliseconds kFirstQuickPause{50};
constexpr char kTimeout[] = "Autuhorization timeout";

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
const Json::Value* FindUsableChallenge(const Json::Value& authorization, const std::string& type,
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
      FindUsableChallenge(authorization, type, [](const Json::Value& candidate) {
        return HasMember(candidate, "url") && HasMember(candidate, "token");
      });
  if (challenge == nullptr) throw Error(code::kProtocol, kTag, "Can't find challenges");
  const Json::Value& problem = Member(*challenge, "error");
  throw SLError::FromServerText(CodeOfProblem(TextMember(problem, "type")), kTag,
                                TextMember(problem, "detail"));
}

HttpResponse GetAuthorization(Session& session, const std::string& url) {
  HttpResponse response = session.PostAsGet(url);
  if (response.status != 200) {
    throw WithCause(Error(code::kProtocol, kTag, "new_authz info: unexpect httpcode."), response);
  }
  return response;
}

struct Look {
  std::string status;
  HttpResponse reply;
};

// Throws when it is invalid or does not say what it is.
Look LookAtAuthorization(Session& session, const std::string& url, const std::string& type) {
  Look look{{}, GetAuthorization(session, url)};
  const Json::Value authorization = ObjectBody(kTag, look.reply);
  if (!HasMember(authorization, "status")) {
    throw Error(code::kProtocol, kTag, "unexpect json response.");
  }
  look.status = TextMember(authorization, "status");
  if (look.status == "invalid") ThrowValidationProblem(authorization, type);
  return look;
}

}  // namespace

const Json::Value* FindChallenge(const Json::Value& authorization, const std::string& type) {
  return FindUsableChallenge(authorization, type, [](const Json::Value&) { return true; });
}

Json::Value FetchAuthorization(Session& session, const std::string& url) {
  return ObjectBody(kTag, GetAuthorization(session, url));
}

HttpResponse RespondChallenge(Session& session, const std::string& url) {
  HttpResponse response = session.PostJws(url, Json::Value(Json::objectValue));
  if (response.status != 200) {
    throw WithCause(Error(code::kProtocol, kTag, "challenge: unexpect httpcode."), response);
  }
  return response;
}

void WaitAuthorization(Session& session, const std::string& url, const std::string& type) {
  for (int poll = 0; poll < kMaximumPolls; ++poll) {
    const std::string status = LookAtAuthorization(session, url, type).status;
    if (status == "valid") return;
    // Any other status is polled again at once, on purpose; it counts all the same.
    if (status == "pending") WaitVisibly(kPendingPause);
  }
  throw Error(code::kRefused, kTag, kTimeout);
}

void WaitAuthorizationQuickly(Session& session, const std::string& url, const std::string& type,
                              const HttpResponse& answer) {
  Patience patience(kFirstQuickPause, kTimeout);
  patience.PauseAfter(answer);
  for (;;) {
    const Look look = LookAtAuthorization(session, url, type);
    if (look.status == "valid") return;
    patience.PauseAfter(look.reply);
  }
}

}  // namespace kova
