#include "acme_v2/order.h"

#include <algorithm>
#include <array>

#include "acme/reply.h"
#include "acme_v2/session.h"
#include "base/json.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr char kReplaces[] = "replaces";
constexpr std::array kReplacementProblems = {"urn:ietf:params:acme:error:alreadyReplaced",
                                             "urn:ietf:params:acme:error:malformed",
                                             "urn:ietf:params:acme:error:unauthorized"};

Json::Value OrderPayload(const std::vector<std::string>& names) {
  Json::Value payload(Json::objectValue);
  payload["identifiers"] = Json::Value(Json::arrayValue);
  for (const std::string& name : names) {
    Json::Value identifier(Json::objectValue);
    identifier["type"] = "dns";
    identifier["value"] = name;
    payload["identifiers"].append(identifier);
  }
  return payload;
}

const Json::Value& OfferedProfiles(const Session& session) {
  return Member(Member(session.Directory(), "meta"), "profiles");
}

// The profile to ask for: the chosen one or the settings', if the CA has it.
std::string OfferedProfile(const Session& session, const std::string& chosen) {
  std::string profile = chosen.empty() ? session.CurrentSettings().profile.value_or("") : chosen;
  if (chosen.empty() && !session.CurrentSettings().profile) return {};
  if (HasMember(OfferedProfiles(session), profile.c_str())) return profile;
  LogError(kTag, "The CA has no profile [%s].", profile.c_str());
  return {};
}

// Whether the CA may have refused the order for the certificate that it replaces: another order has
// replaced it (409), or the CA knows no such certificate of this account and these names. Its rate
// limits (429) are no such reason.
bool RefusesReplacement(const HttpResponse& response) {
  if (response.status < 400 || response.status >= 500 || response.status == 429) return false;
  if (response.status == 409) return true;
  Json::Value problem;
  if (!JsonFromText(response.body, problem)) return false;
  return std::any_of(kReplacementProblems.begin(), kReplacementProblems.end(),
                     [&](const char* type) { return IsProblem(problem, type); });
}

HttpResponse Place(Session& session, Json::Value payload) {
  const std::string url = session.Resource("newOrder");
  HttpResponse response = session.PostJws(url, payload);
  if (!payload.isMember(kReplaces) || !RefusesReplacement(response)) return response;
  LogError(kTag, "The CA refused the order as a replacement of [%s] (%ld), it is placed without.",
           TextMember(payload, kReplaces).c_str(), response.status);
  payload.removeMember(kReplaces);
  return session.PostJws(url, payload);
}

std::vector<std::string> AuthorizationUrls(const Json::Value& order) {
  const Json::Value& listed = Member(order, "authorizations");
  if (!listed.isArray()) throw Error(code::kProtocol, kTag, "unexpect json response.");
  std::vector<std::string> urls;
  for (const Json::Value& url : listed) {
    if (!url.isString()) throw Error(code::kProtocol, kTag, "unexpect json response.");
    urls.push_back(url.asString());
  }
  return urls;
}

}  // namespace

void RequireProfile(const Session& session, const std::string& profile) {
  const Json::Value& offered = OfferedProfiles(session);
  if (HasMember(offered, profile.c_str())) return;
  std::string names;
  if (offered.isObject()) {
    for (const std::string& name : offered.getMemberNames()) {
      names += (names.empty() ? ", only " : ", ") + name;
    }
  }
  throw Error(code::kRefused, "profile", "The CA has no profile [" + profile + "]" + names);
}

Order NewOrder(Session& session, const std::vector<std::string>& names,
               const std::string& chosen_profile, const std::string& replaces) {
  ShowStage("", "placing the order");
  Json::Value payload = OrderPayload(names);
  const std::string profile = OfferedProfile(session, chosen_profile);
  if (!profile.empty()) payload["profile"] = profile;
  if (!replaces.empty() && !session.Resource("renewalInfo").empty()) payload[kReplaces] = replaces;
  const HttpResponse response = Place(session, payload);
  switch (response.status) {
    case 201:
      break;
    case 429:
      throw SLError::FromServerText(code::kOrderRateLimit, kTag, ProblemDetail(response));
    case 400:
      throw WithCause(
          SLError::FromServerText(code::kRefused, kTag,
                                  "Failed to issue order" + JsonToString(GetJsonBody(response))),
          response);
    default:
      throw WithCause(Error(code::kProtocol, kTag, "new_authz: unexpect httpcode."), response);
  }
  const Json::Value document = ObjectBody(kTag, response);
  Order order;
  order.url = GetHeader(response, "Location");
  order.authorizations = AuthorizationUrls(document);
  order.finalize = RequiredText(kTag, document, "finalize");
  order.names = names;
  return order;
}

}  // namespace kova
