#include "acme/reply.h"

#include "base/json.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr char kUnexpected[] = "unexpect json response.";

}  // namespace

bool IsProblem(const Json::Value& document, const char* type) {
  return TextMember(document, "type") == type;
}

Json::Value ObjectBody(const HttpResponse& response) {
  Json::Value body = GetJsonBody(response);
  if (!body.isObject()) throw Error(code::kProtocol, kTag, kUnexpected);
  return body;
}

std::string ProblemDetail(const HttpResponse& response) {
  return TextMember(GetJsonBody(response), "detail");
}

std::string RequiredText(const Json::Value& object, const char* name) {
  const Json::Value& member = Member(object, name);
  if (!member.isString()) throw Error(code::kProtocol, kTag, kUnexpected);
  return member.asString();
}

}  // namespace kova
