// An account at the CA: the key that signs, the URL that the CA knows it by, and the folder of the
// account store that holds both.
#pragma once

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

}  // namespace kova
