// Keys of certificates. Making an RSA key takes a while, and how long is luck.
#pragma once

#include <optional>
#include <string>

#include "crypto/openssl_ptr.h"
#include "platform/aside.h"

namespace kova {

enum class KeyType { kRsa2048, kRsa3072, kRsa4096, kEc256, kEc384 };

// A key type as settings, renewal records and command lines name it: "rsa2048", "rsa3072",
// "rsa4096", "ec256", "ec384". None for any other text.
[[nodiscard]] std::optional<KeyType> ParseKeyType(const std::string& name);
[[nodiscard]] const char* NameOf(KeyType type);

// The PEM text of a key of that type: PKCS#1 for RSA, PKCS#8 for elliptic curves. Empty when it
// could not be written. The caller cleanses it.
[[nodiscard]] std::string KeyPem(EVP_PKEY& key, KeyType type);

class CertificateKey {
 public:
  explicit CertificateKey(KeyType type) : type_(type) {}

  // Has a child process make the key from now on, so that it is there when the CA has validated. A
  // key that takes no time waits for Take, and so does each in a process of several threads.
  void MakeAhead();

  // A key, another one at each call: the one that was made ahead, or else made now. None when it
  // could not be made. Throws platform::Interruption when the run is to end.
  [[nodiscard]] EvpPkeyPtr Take();

  [[nodiscard]] KeyType Type() const { return type_; }

 private:
  KeyType type_;
  std::optional<platform::TextAside> ahead_;
};

}  // namespace kova
