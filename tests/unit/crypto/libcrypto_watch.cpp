#include "libcrypto_watch.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace {

bool watching = false;
std::vector<std::string> cleansed;
bool request_output_fails = false;
bool request_signature_fails = false;
bool key_output_fails = false;
bool no_keys = false;

}  // namespace

// The linker's names for the real function and its replacement.
extern "C" {
void __real_OPENSSL_cleanse(void* bytes, size_t length);                  // NOLINT
int __real_PEM_write_bio_X509_REQ(BIO* output, const X509_REQ* request);  // NOLINT
int __real_PEM_write_bio_PrivateKey(BIO* output, const EVP_PKEY* key,     // NOLINT
                                    const EVP_CIPHER* cipher, const unsigned char* phrase,
                                    int length, pem_password_cb* ask, void* data);

int __wrap_PEM_write_bio_PrivateKey(BIO* output, const EVP_PKEY* key,  // NOLINT
                                    const EVP_CIPHER* cipher, const unsigned char* phrase,
                                    int length, pem_password_cb* ask, void* data) {
  if (key_output_fails) return 0;
  return __real_PEM_write_bio_PrivateKey(output, key, cipher, phrase, length, ask, data);
}

int __real_X509_REQ_sign(X509_REQ* request, EVP_PKEY* key, const EVP_MD* digest);  // NOLINT

int __wrap_X509_REQ_sign(X509_REQ* request, EVP_PKEY* key, const EVP_MD* digest) {  // NOLINT
  return request_signature_fails ? 0 : __real_X509_REQ_sign(request, key, digest);
}

EVP_PKEY* __real_EVP_PKEY_Q_keygen(OSSL_LIB_CTX* context, const char* properties,  // NOLINT
                                   const char* type, ...);

EVP_PKEY* __wrap_EVP_PKEY_Q_keygen(OSSL_LIB_CTX* context, const char* properties,  // NOLINT
                                   const char* type, ...) {
  if (no_keys) return nullptr;
  const bool is_rsa = std::strcmp(type, "RSA") == 0;
  std::va_list args;
  va_start(args, type);
  EVP_PKEY* const key =
      is_rsa ? __real_EVP_PKEY_Q_keygen(context, properties, type, va_arg(args, size_t))
             : __real_EVP_PKEY_Q_keygen(context, properties, type, va_arg(args, char*));
  va_end(args);
  return key;
}

void __wrap_OPENSSL_cleanse(void* bytes, size_t length) {  // NOLINT
  if (watching) cleansed.emplace_back(static_cast<const char*>(bytes), length);
  __real_OPENSSL_cleanse(bytes, length);
}

int __wrap_PEM_write_bio_X509_REQ(BIO* output, const X509_REQ* request) {  // NOLINT
  return request_output_fails ? 0 : __real_PEM_write_bio_X509_REQ(output, request);
}
}

namespace kova::test {

CleansedBytes::CleansedBytes() {
  cleansed.clear();
  watching = true;
}
CleansedBytes::~CleansedBytes() { watching = false; }

bool CleansedBytes::Include(const std::string& bytes) const {
  return std::any_of(cleansed.begin(), cleansed.end(), [&bytes](const std::string& buffer) {
    return buffer.compare(0, bytes.size(), bytes) == 0;
  });
}

RequestOutputFails::RequestOutputFails() { request_output_fails = true; }
RequestOutputFails::~RequestOutputFails() { request_output_fails = false; }

KeyOutputFails::KeyOutputFails() { key_output_fails = true; }
KeyOutputFails::~KeyOutputFails() { key_output_fails = false; }

RequestSignatureFails::RequestSignatureFails() { request_signature_fails = true; }
RequestSignatureFails::~RequestSignatureFails() { request_signature_fails = false; }

NoKeys::NoKeys() { no_keys = true; }
NoKeys::~NoKeys() { no_keys = false; }

NoAlgorithms::NoAlgorithms() { EVP_set_default_properties(nullptr, "provider=none"); }
NoAlgorithms::~NoAlgorithms() { EVP_set_default_properties(nullptr, ""); }

}  // namespace kova::test
