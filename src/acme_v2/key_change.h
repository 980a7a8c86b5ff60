// An account's key is changed (RFC 8555, 7.3.5), and what a run that was killed meanwhile left is
// settled. The new key is stored beside the old one as long as it is not known which of them the CA
// knows (acme/next_key.h).
#pragma once

#include "acme_v2/account.h"

namespace kova {

class Session;

// Whether the CA knows the account by this key. The session, whose directory is known, speaks for
// `account` afterwards. An answer that is neither yes nor no is SLError 200.
bool IsKnownByKey(Session& session, const Account& account);

// Asks the CA to know the account, which the session speaks for, by the key `next`. Throws SLError
// 200 with the CA's words when it refuses; it may have taken the key all the same, now or before.
void ChangeKey(Session& session, const Account& account, const RsaKey& next);

// The session speaks for the stored account: with the key that the CA knows, which is put in its
// place first when a change was cut short. Throws as Account::Load does, and SLError 202.
void UseStoredAccount(Session& session, const std::string& folder);

}  // namespace kova
