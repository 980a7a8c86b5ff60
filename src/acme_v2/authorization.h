// One authorization: the CA's demand for the proof of one name.
#pragma once

#include <json/value.h>

#include <string>

#include "acme_v2/session.h"

namespace kova {

// Throws SLError 200 "new_authz info: unexpect httpcode.".
Json::Value FetchAuthorization(Session& session, const std::string& url);

// Tells the CA to look. Throws SLError 200 "challenge: unexpect httpcode.".
void RespondChallenge(Session& session, const std::string& url);

// Polls until it is valid: 30 polls, 2 s after each "pending". Throws what the CA says about the
// challenge of that type (SLError 101, 109, 110 or 200), or 102 "Autuhorization timeout".
void WaitAuthorization(Session& session, const std::string& url, const std::string& type);

// The first challenge of that type that is offered, or null.
const Json::Value* FindChallenge(const Json::Value& authorization, const std::string& type);

}  // namespace kova
