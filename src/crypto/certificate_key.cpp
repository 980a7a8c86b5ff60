#include "crypto/certificate_key.h"

#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <algorithm>
#include <array>

#include "crypto/pem.h"
#include "crypto/secret.h"

namespace kova {
namespace {

struct KeyKind {
  KeyType type;
  const char* name;
  size_t rsa_bits;    // 0 for an elliptic curve
  const char* curve;  // null for RSA
};
constexpr std::array<KeyKind, 5> kKinds{{
    {KeyType::kRsa2048, "rsa2048", 2048, nullptr},
    {KeyType::kRsa3072, "rsa3072", 3072, nullptr},
    {KeyType::kRsa4096, "rsa4096", 4096, nullptr},
    {KeyType::kEc256, "ec256", 0, "P-256"},
    {KeyType::kEc384, "ec384", 0, "P-384"},
}};

const KeyKind& KindOf(KeyType type) {
  return *std::find_if(kKinds.begin(), kKinds.end(),
                       [type](const KeyKind& kind) { return kind.type == type; });
}

bool IsRsa(KeyType type) { return KindOf(type).curve == nullptr; }

EvpPkeyPtr MakeKey(KeyType type) {
  const KeyKind& kind = KindOf(type);
  return EvpPkeyPtr(IsRsa(type) ? EVP_RSA_gen(kind.rsa_bits) : EVP_EC_gen(kind.curve));
}

// RSA as PKCS#1, the form that every consumer of the archive reads.
bool WriteKey(BIO& output, EVP_PKEY& key, KeyType type) {
  if (!IsRsa(type)) {
    return PEM_write_bio_PrivateKey(&output, &key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
  }
  return PEM_write_bio_PrivateKey_traditional(&output, &key, nullptr, nullptr, 0, nullptr,
                                              nullptr) == 1;
}

std::string NewKeyPem(KeyType type) {
  const EvpPkeyPtr key = MakeKey(type);
  return key ? KeyPem(*key, type) : std::string();
}

EvpPkeyPtr ReadKeyPem(const std::string& pem) {
  const BioPtr source = PemSource(pem);
  return source ? ReadPrivateKey(*source) : nullptr;
}

}  // namespace

std::optional<KeyType> ParseKeyType(const std::string& name) {
  for (const KeyKind& kind : kKinds) {
    if (name == kind.name) return kind.type;
  }
  return std::nullopt;
}

const char* NameOf(KeyType type) { return KindOf(type).name; }

std::string KeyPem(EVP_PKEY& key, KeyType type) {
  const BioPtr text = MemoryBio();
  return text && WriteKey(*text, key, type) ? BioText(*text) : std::string();
}

void CertificateKey::MakeAhead() {
  if (!IsRsa(type_) || !platform::IsSingleThreaded()) return;
  ahead_.emplace([type = type_] { return NewKeyPem(type); });
}

EvpPkeyPtr CertificateKey::Take() {
  SecretText pem;
  if (ahead_ && ahead_->Take(pem.text)) {
    if (EvpPkeyPtr key = ReadKeyPem(pem.text)) return key;
  }
  return MakeKey(type_);
}

}  // namespace kova
