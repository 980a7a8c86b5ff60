#include "acme_v2/authorizer.h"

#include <memory>

#include "acme/reply.h"
#include "acme_v2/authorization.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "challenge/challenge.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";

std::vector<std::string> InitialTypes(const Settings& settings) {
  if (!settings.usable) {
    DebugStep("Failed to read from %s [%d]", kSettingsPath, settings.read_error);
  }
  if (!settings.skip_dns01) return {"dns-01", "http-01"};
  DebugStep("Skip dns challenge is enabled");
  return {"http-01"};
}

}  // namespace

Authorizer::Authorizer(const Settings& settings) : types_(InitialTypes(settings)) {}

void Authorizer::AuthorizeOrder(Session& session, const Order& order) {
  ShowStage("", "asking the router to forward ports 80 and 443");
  OpenRouterPorts();  // without it the host may still be reachable
  try {
    for (const std::string& url : order.authorizations) DoAuthorization(session, url);
  } catch (...) {
    CloseRouterPorts();
    DebugStep("close port 80.");
    throw;
  }
  CloseRouterPorts();
}

void Authorizer::DoAuthorization(Session& session, const std::string& url) {
  const Json::Value authorization = FetchAuthorization(session, url);
  if (TextMember(authorization, "status") == "valid") {
    DebugStep("Get valid without setup challenge, may cache?");
    return;
  }
  const std::string name = RequiredText(kTag, Member(authorization, "identifier"), "value");
  try {
    Prove(session, url, authorization, name);
  } catch (SLError& error) {
    error.name = name;
    throw;
  }
}

void Authorizer::Prove(Session& session, const std::string& url, const Json::Value& authorization,
                       const std::string& name) {
  for (size_t index = 0; index < types_.size();) {
    const std::string type = types_[index];
    const std::shared_ptr<LeChallenge> challenge = ChallengeFactory(type, name, session.Http());
    if (!challenge->isSupport(name)) {
      DebugStep("%s is not support for %s", type.c_str(), name.c_str());
      UseUp(type);  // for later authorizations too, on purpose
      continue;
    }
    if (TryChallenge(session, url, authorization, *challenge)) return;
    ++index;
  }
  types_.clear();
  type_used_up_ = true;
  throw Error(code::kProtocol, kTag, "do new auth by path: failed to do challenge.");
}

// False when the authorization does not offer the challenge's type.
bool Authorizer::TryChallenge(Session& session, const std::string& url,
                              const Json::Value& authorization, LeChallenge& challenge) {
  const std::string type = challenge.type();
  const Json::Value* offered = FindChallenge(authorization, type);
  if (offered == nullptr) return false;
  const std::string name = RequiredText(kTag, Member(authorization, "identifier"), "value");
  const std::string token = RequiredText(kTag, *offered, "token");
  DebugStep("Setup challenge for %s with type %s", name.c_str(), type.c_str());
  ShowStage(name, "setting up " + type);
  challenge.Set(name, token, token + "." + session.Key().Thumbprint());
  if (!challenge.setup()) {
    DebugStep("Failed to setup challenge for %s with type %s.", name.c_str(), type.c_str());
    throw SLError(code::kLocal, kTag, __LINE__, "Failed to setup challegne for %s of %s",
                  name.c_str(), type.c_str());
  }
  Validate(session, url, TextMember(*offered, "url"), challenge, type);
  return true;
}

void Authorizer::Validate(Session& session, const std::string& authorization_url,
                          const std::string& challenge_url, const LeChallenge& challenge,
                          const std::string& type) {
  try {
    ShowStage(challenge.domain, "waiting for the CA to validate " + type);
    const HttpResponse answer = RespondChallenge(session, challenge_url);
    if (session.CurrentSettings().quick_validation) {
      WaitAuthorizationQuickly(session, authorization_url, type, answer);
    } else {
      WaitAuthorization(session, authorization_url, type);
    }
  } catch (...) {
    UseUp(type);
    DebugStep("Failed to do challenge for %s with type %s.", challenge.domain.c_str(),
              type.c_str());
    throw;
  }
}

void Authorizer::UseUp(const std::string& type) {
  std::erase(types_, type);
  type_used_up_ = true;
}

}  // namespace kova
