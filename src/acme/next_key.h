// The key that an account is about to get, next_key.json beside its private_key.json
// (docs/formats.md). It is stored before the CA is asked to take it, so that the key that the CA
// knows is always one of the two, whenever a run is killed; the CA can say which (acme_v2's
// key_change.h).
#pragma once

#include <json/value.h>

#include <string>

namespace kova {

std::string NextKeyPath(const std::string& folder);

[[nodiscard]] bool HasNextKey(const std::string& folder);

// False when it is no JSON object. The caller cleanses the key.
[[nodiscard]] bool ReadNextKey(const std::string& folder, Json::Value& key);

// Puts it down for good (0600). Throws SLError 202.
void WriteNextKey(const std::string& folder, const Json::Value& key);

// The CA knows it: it takes the place of the account's key in one rename. Done as well when another
// process was faster. Throws SLError 202 when it could not be moved, or is neither of the two keys
// any more.
void CommitNextKey(const std::string& folder, const Json::Value& key);

// The CA has said that it does not know it. Another one is left. What fails leaves it there.
void DropNextKey(const std::string& folder, const Json::Value& key);

}  // namespace kova
