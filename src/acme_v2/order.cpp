#include "acme_v2/order.h"

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

// The profile to ask for: the chosen one or the settings', if the CA has it.
std::string OfferedProfile(const Session& session, const std::string& chosen) {
  std::string profile = chosen.empty() ? session.CurrentSettings().profile.value_or("") : chosen;
  if (chosen.empty() && !session.CurrentSettings().profile) return {};
  const Json::Value& offered = Member(Member(session.Directory(), "meta"), "profiles");
  if (HasMember(offered, profile.c_str())) return profile;
  LogError(kTag, "The CA has no profile [%s].", profile.c_str());
  return {};
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

Order NewOrder(Session& session, const std::vector<std::string>& names,
               const std::string& chosen_profile) {
  ShowStage("", "placing the order");
  Json::Value payload = OrderPayload(names);
  const std::string profile = OfferedProfile(session, chosen_profile);
  if (!profile.empty()) payload["profile"] = profile;
  const HttpResponse response = session.PostJws(session.Resource("newOrder"), payload);
  switch (response.status) {
    case 201:
      break;
    case 429:
      throw SLError::FromServerText(code::kOrderRateLimit, kTag, ProblemDetail(response));
    case 400:
      throw SLError::FromServerText(code::kRefused, kTag,
                                    "Failed to issue order" + JsonToString(GetJsonBody(response)));
    default:
      throw Error(code::kProtocol, kTag, "new_authz: unexpect httpcode.");
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
