// What a CA's reply says, taken without trust.
#pragma once

#include <json/value.h>

#include <string>

#include "net/client_network.h"

namespace kova {

inline constexpr char kBadNonceProblem[] = "urn:ietf:params:acme:error:badNonce";
inline constexpr char kMalformedProblem[] = "urn:ietf:params:acme:error:malformed";
inline constexpr char kOrderNotReadyProblem[] = "urn:ietf:params:acme:error:orderNotReady";

// Whether a problem document is of that type.
bool IsProblem(const Json::Value& document, const char* type);

// The reply's JSON object; throws SLError 200 "body is not json." or "unexpect json response.".
Json::Value ObjectBody(const HttpResponse& response);

// The reply's "detail", or an empty string; throws SLError 200 when the body is not JSON.
std::string ProblemDetail(const HttpResponse& response);

// A member that the protocol says is a string; throws SLError 200 "unexpect json response." when it
// is missing or something else.
std::string RequiredText(const Json::Value& object, const char* name);

}  // namespace kova
