// What a CA's reply says, taken without trust. `tag` is the file that a failure carries: the
// client's of the protocol version that is spoken.
#pragma once

#include <json/value.h>

#include <initializer_list>
#include <string>

#include "base/sl_error.h"
#include "net/client_network.h"

namespace kova {

inline constexpr char kBadNonceProblem[] = "urn:ietf:params:acme:error:badNonce";
inline constexpr char kOrderNotReadyProblem[] = "urn:ietf:params:acme:error:orderNotReady";

// Whether a problem document is of that type.
bool IsProblem(const Json::Value& document, const char* type);

// The reply's JSON object; throws SLError 200 "body is not json." or "unexpect json response.".
Json::Value ObjectBody(const char* tag, const HttpResponse& response);

// The reply's "detail", or an empty string; throws SLError 200 when the body is not JSON.
std::string ProblemDetail(const HttpResponse& response);

// The failure with the reply's "detail" as its cause, if it has one. Throws nothing.
SLError WithCause(SLError error, const HttpResponse& response);

// SLError 200 "the CA answered STATUS: DETAIL", the detail where there is one. Throws nothing.
SLError RefusedByCa(Site site, const HttpResponse& response);

// A member that the protocol says is a string; throws SLError 200 "unexpect json response." when it
// is missing or something else.
std::string RequiredText(const char* tag, const Json::Value& object, const char* name);

// The directory in the reply. All of `resources` have to be there, whatever this run needs of them;
// throws SLError 200 "Directory Member missing.".
Json::Value DirectoryBody(const char* tag, const HttpResponse& response,
                          std::initializer_list<const char*> resources);

// Throws unless the reply to a registration is 201: SLError 105 (400) or 103 (429) with the CA's
// detail, else 200 with the text `unexpected`.
void RequireRegistered(const char* tag, const HttpResponse& response, const char* unexpected);

// True when the CA has revoked the certificate now, false when it had before. Throws SLError 200
// "Revoke failed - STATUS  DETAIL".
[[nodiscard]] bool RequireRevoked(const char* tag, const HttpResponse& response);

}  // namespace kova
