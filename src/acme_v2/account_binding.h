// External account binding (RFC 8555, 7.3.4): how an account at the CA becomes one of a customer's.
// /usr/kova/etc/letsencrypt/eab.json, root's and for no one else to read, names the keys:
// directory URL to {"kid": TEXT, "hmac_key": base64url TEXT} (docs/formats.md).
#pragma once

#include <json/value.h>

#include <string>

namespace kova {

// The "externalAccountBinding" for an account with that public key, registered at `url`
// (newAccount) of that directory; null when the file has nothing for the directory. A file that is
// not safe, or an entry that cannot be used, counts as none after one line in the system log.
Json::Value AccountBinding(const std::string& directory, const std::string& url,
                           const Json::Value& jwk);

}  // namespace kova
