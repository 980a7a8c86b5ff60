// An account at the CA: the key that signs, the URL that the CA knows it by, and the folder of the
// account store that holds both.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "crypto/rsa.h"

namespace kova {

class Session;

struct Account {
  std::shared_ptr<const RsaKey> key;
  std::string url;     // "kid"; empty until the CA has named it
  std::string folder;  // empty until it is stored

  // The stored folder of this directory and contact, or an empty string: of two the one whose name
  // sorts first. Throws the text "glob error" (no SLError).
  static std::string Find(const std::string& directory, const std::string& contact);

  // Throws SLError 201 when one of the folder's two files cannot be used.
  static Account Load(const std::string& folder);

  // A new key, agreed terms of service, a new folder in the store. The session speaks with the new
  // key from the request on.
  static void Register(Session& session, const std::string& contact);

  // Has the session use the stored account of its directory and that contact, or registers one.
  static void Setup(Session& session, const std::string& contact);
};

// External account binding (RFC 8555, 7.3.4): how an account at the CA becomes one of a customer's.
// /usr/kova/etc/letsencrypt/eab.json, root's and for no one else to read, names the keys:
// directory URL to {"kid": TEXT, "hmac_key": base64url TEXT} (docs/formats.md).
//
// The "externalAccountBinding" for an account with that public key, registered at `url`
// (newAccount) of that directory; null when the file has nothing for the directory. A file that is
// not safe, or an entry that cannot be used, counts as none after one line in the system log.
Json::Value AccountBinding(const std::string& directory, const std::string& url,
                           const Json::Value& jwk);

}  // namespace kova
