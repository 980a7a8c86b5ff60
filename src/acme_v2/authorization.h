// One authorization: the CA's demand for the proof of one name.
#pragma once

#include <json/value.h>

#include <string>

#include "acme_v2/session.h"

namespace kova {

// Throws SLError 200 "new_authz info: unexpect httpcode.".
Json::Value FetchAuthorization(Session& session, const std::string& url);

// Tells the CA to look; returns its answer. Throws SLError 200 "challenge: unexpect httpcode.".
HttpResponse RespondChallenge(Session& session, const std::string& url);

// Polls until it is valid: 30 polls, 2 s after each "pending". Throws what the CA says about the
// challenge of that type (SLError 101, 109, 110 or 200), or 102 "Autuhorization timeout".
void WaitAuthorization(Session& session, const std::string& url, const std::string& type);

// The same for `quickvalidation`: the first look comes 50 ms after the CA's `answer` to the
// response, each later one after a pause that doubles up to 2 s, or as the CA asks; 102 after 60 s
// in all.
void WaitAuthorizationQuickly(Session& session, const std::string& url, const std::string& type,
                              const HttpResponse& answer);

// The first challenge of that type that is offered, or null.
const Json::Value* FindChallenge(const Json::Value& authorization, const std::string& type);

}  // namespace kova
