// What else an account may ask of its CA (RFC 8555, 7.3.2 and 7.3.6). The session speaks for it.
// Each throws SLError 200 with the CA's words when it refuses.
#pragma once

#include <string>

#include "acme_v2/account.h"
#include "net/client_network.h"

namespace kova {

class Session;

// The file of what is thrown when the CA refuses a change of an account.
inline constexpr char kAccountTag[] = "account";

// What the CA says of the account to whoever holds its key, which may be another one than that
// which the CA knows it by. It registers none.
HttpResponse AskByKey(Session& session, const Account& account);

// Another e-mail address.
void UpdateContact(Session& session, const Account& account, const std::string& mail);

// The CA takes no request of the account's from now on. Done as well when that is so already.
void Deactivate(Session& session, const Account& account);

}  // namespace kova
