// What an administrator does to a stored ACME account. One change of an account, and one run of
// renew-all, at a time. All of them are for accounts of ACME version 2 and throw SLError with a
// message in words: what stands in the way, or what the CA said.
#pragma once

#include <string>
#include <vector>

#include "base/settings.h"

namespace kova {

// Tells the CA the new e-mail address, then stores it.
void UpdateAccount(const std::string& id, const std::string& mail, const Settings& settings);

enum class Rollover {
  kDone,      // the account has a new key
  kFinished,  // the CA had taken the new key of a run that was cut short; it is the account's now
};

// Gives the account a new key. Whenever this ends or is killed, the key that the CA knows is
// stored: as the account's key, or as its next one (acme/next_key.h).
Rollover RolloverAccount(const std::string& id, const Settings& settings);

// Ends the account at the CA and takes its folder out of the store. Unless `force`, only when no
// certificate of the archive has it in its renewal record. Returns the ids of those that have.
std::vector<std::string> DeactivateAccount(const std::string& id, bool force,
                                           const Settings& settings);

}  // namespace kova
