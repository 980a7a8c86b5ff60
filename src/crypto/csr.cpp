#include "crypto/csr.h"

#include <openssl/pem.h>

#include <algorithm>

#include "crypto/openssl_ptr.h"

namespace kova {
namespace {

using ExtensionPtr = std::unique_ptr<X509_EXTENSION, OpensslFree<X509_EXTENSION_free>>;
struct ExtensionStackFree {
  void operator()(STACK_OF(X509_EXTENSION) * stack) const noexcept {
    sk_X509_EXTENSION_pop_free(stack, X509_EXTENSION_free);
  }
};
using ExtensionStackPtr = std::unique_ptr<STACK_OF(X509_EXTENSION), ExtensionStackFree>;

// The extension is made from a text in which commas separate entries and line ends cut it off:
// a name that holds one could smuggle in entries that nobody was asked about.
bool IsSafeInText(const std::string& name) {
  return std::none_of(name.begin(), name.end(), [](unsigned char character) {
    return character <= ' ' || character == 0x7f || character == ',';
  });
}

std::string AlternativeNames(const std::vector<std::string>& domains) {
  std::string text;
  for (const std::string& name : domains) {
    if (!text.empty()) text += ", ";
    text += "DNS:" + name;
  }
  return text;
}

bool SetCommonName(X509_REQ& request, const std::string& name) {
  return X509_NAME_add_entry_by_txt(X509_REQ_get_subject_name(&request), "CN", MBSTRING_ASC,
                                    reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1,
                                    0) == 1;
}

bool AddAlternativeNames(X509_REQ& request, const std::string& names) {
  ExtensionPtr extension(
      X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, names.c_str()));
  const ExtensionStackPtr stack(sk_X509_EXTENSION_new_null());
  if (!extension || !stack || sk_X509_EXTENSION_push(stack.get(), extension.get()) <= 0) {
    return false;
  }
  (void)extension.release();  // the stack's now
  return X509_REQ_add_extensions(&request, stack.get()) == 1;
}

const EVP_MD* DigestFor(KeyType type) {
  return type == KeyType::kEc384 ? EVP_sha384() : EVP_sha256();
}

X509ReqPtr MakeRequest(const std::vector<std::string>& domains, EVP_PKEY& pkey,
                       const EVP_MD* digest) {
  X509ReqPtr request(X509_REQ_new());
  if (!request || X509_REQ_set_pubkey(request.get(), &pkey) != 1 ||
      !SetCommonName(*request, domains.front()) ||
      !AddAlternativeNames(*request, AlternativeNames(domains)) ||
      X509_REQ_sign(request.get(), &pkey, digest) <= 0) {
    return nullptr;
  }
  return request;
}

}  // namespace

void GenerateCsr(const std::vector<std::string>& domains, std::string& request_pem,
                 std::string& private_key_pem, CertificateKey& key) {
  request_pem.clear();
  private_key_pem.clear();
  if (domains.empty() || !std::all_of(domains.begin(), domains.end(), IsSafeInText)) return;
  const EvpPkeyPtr pkey = key.Take();
  if (!pkey) return;
  const X509ReqPtr request = MakeRequest(domains, *pkey, DigestFor(key.Type()));
  if (!request) return;
  private_key_pem = KeyPem(*pkey, key.Type());
  if (private_key_pem.empty()) return;

  const BioPtr request_text = MemoryBio();
  if (!request_text || PEM_write_bio_X509_REQ(request_text.get(), request.get()) != 1) return;
  request_pem = BioText(*request_text);
}

void GenerateCsr(const std::vector<std::string>& domains, std::string& request_pem,
                 std::string& private_key_pem, KeyType type) {
  CertificateKey key(type);
  GenerateCsr(domains, request_pem, private_key_pem, key);
}

}  // namespace kova
