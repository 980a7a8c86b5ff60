#include "acme/reply.h"
#include "acme_v2/client_v2.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";

Json::Value OrderPayload(const std::vector<std::string>& domains) {
  Json::Value payload(Json::objectValue);
  payload["identifiers"] = Json::Value(Json::arrayValue);
  for (const std::string& domain : domains) {
    Json::Value identifier(Json::objectValue);
    identifier["type"] = "dns";
    identifier["value"] = domain;
    payload["identifiers"].append(identifier);
  }
  return payload;
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

void AcmeV2Client::NewOrder(const std::vector<std::string>& domains) {
  ShowStage("", "placing the order");
  const HttpResponse response = PostJws(Resource("newOrder"), OrderPayload(domains));
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
  const Json::Value order = ObjectBody(response);
  order_url_ = GetHeader(response, "Location");
  authorization_urls_ = AuthorizationUrls(order);
  finalize_url_ = RequiredText(order, "finalize");
}

}  // namespace kova
