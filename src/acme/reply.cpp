#include "acme/reply.h"

#include "base/debug.h"
#include "base/json.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kUnexpected[] = "unexpect json response.";

}  // namespace

bool IsProblem(const Json::Value& document, const char* type) {
  return TextMember(document, "type") == type;
}

Json::Value ObjectBody(const char* tag, const HttpResponse& response) {
  Json::Value body = GetJsonBody(response);
  if (!body.isObject()) throw Error(code::kProtocol, tag, kUnexpected);
  return body;
}

std::string ProblemDetail(const HttpResponse& response) {
  return TextMember(GetJsonBody(response), "detail");
}

SLError WithCause(SLError error, const HttpResponse& response) {
  Json::Value body;
  if (JsonFromText(response.body, body)) error.cause = TextMember(body, "detail");
  return error;
}

SLError RefusedByCa(Site site, const HttpResponse& response) {
  Json::Value body;
  (void)JsonFromText(response.body, body);
  const std::string detail = TextMember(body, "detail");
  return SLError::FromServerText(
      code::kProtocol, site,
      "the CA answered " + std::to_string(response.status) + (detail.empty() ? "" : ": " + detail));
}

std::string RequiredText(const char* tag, const Json::Value& object, const char* name) {
  const Json::Value& member = Member(object, name);
  if (!member.isString()) throw Error(code::kProtocol, tag, kUnexpected);
  return member.asString();
}

Json::Value DirectoryBody(const char* tag, const HttpResponse& response,
                          std::initializer_list<const char*> resources) {
  Json::Value directory = GetJsonBody(response);
  for (const char* name : resources) {
    if (!Member(directory, name).isString()) {
      throw Error(code::kProtocol, tag, "Directory Member missing.");
    }
  }
  return directory;
}

void RequireRegistered(const char* tag, const HttpResponse& response, const char* unexpected) {
  switch (response.status) {
    case 201:
      return;
    case 400:
      throw SLError::FromServerText(code::kAccountRefused, tag, ProblemDetail(response));
    case 429:
      throw SLError::FromServerText(code::kAccountRateLimit, tag, ProblemDetail(response));
    default:
      throw WithCause(Error(code::kProtocol, tag, unexpected), response);
  }
}

bool RequireRevoked(const char* tag, const HttpResponse& response) {
  if (response.status == 200) return true;
  if (response.status == 409) {
    DebugStep("Has already revoked");
    return false;
  }
  throw SLError::FromServerText(
      code::kProtocol, tag,
      "Revoke failed - " + std::to_string(response.status) + "  " + ProblemDetail(response));
}

}  // namespace kova
