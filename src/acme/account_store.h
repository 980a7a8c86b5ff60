// The account store: /usr/kova/etc/letsencrypt/account, one folder per account, each with
// info.json and private_key.json (docs/formats.md). Both protocol versions keep their accounts
// here; "version" in info.json tells whose it is. Issuing and renewing never change an account
// folder once it is written; `kova-archive account` does (here, and next_key.h).
#pragma once

#include <json/value.h>

#include <functional>
#include <string>
#include <vector>

namespace kova {

// Removes what killed runs left half made or half removed.
void RemoveUnfinishedAccounts();

// What is in the store, after that, sorted; folders have a "/" at their end. Throws the text "glob
// error" (deliberately no SLError).
std::vector<std::string> ListAccounts();

// Reads `folder`/info.json or `folder`/private_key.json; false when it is no JSON object. The
// caller cleanses the key.
[[nodiscard]] bool ReadAccountInfo(const std::string& folder, Json::Value& info);
[[nodiscard]] bool ReadAccountKey(const std::string& folder, Json::Value& key);

// The folder of that name in the store.
std::string AccountFolder(const std::string& name);

// Replaces info.json whole. Throws SLError 202.
void ReplaceAccountInfo(const std::string& folder, const Json::Value& info);

// Takes the folder out of the store in one rename, then deletes it; what a kill leaves of it goes
// at the next RemoveUnfinishedAccounts. Throws SLError 202 when it is still in the store.
void RemoveAccount(const std::string& folder);

std::string AccountInfoPath(const std::string& folder);
std::string AccountKeyPath(const std::string& folder);

// The first of the folders that holds a record of that protocol version for that directory and
// contact, and that `is_usable` besides; empty when none does. The comparison is exact, types
// included: a "version" of "2" is not 2.
std::string FirstAccount(
    const std::vector<std::string>& folders, const std::string& directory,
    const std::string& contact, int version,
    const std::function<bool(const std::string& folder, const Json::Value& info)>& is_usable);

// Writes a new folder (0700, files 0600) and returns its path. Failures are SLError 202 with `tag`
// as the file, each logged.
std::string CreateAccountFolder(const char* tag, const Json::Value& info, const Json::Value& key);

}  // namespace kova
