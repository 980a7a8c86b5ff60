// Linked into a test program, this deals keys in turn from a small pool instead of making a new one
// for every account and certificate, which would take most of the program's time. Other kinds of
// keys than the common one are made.
#include <openssl/evp.h>

#include <array>
#include <cstdarg>
#include <cstring>

namespace {

std::array<EVP_PKEY*, 3> pool;  // kept until the end of the process
size_t next_key = 0;

}  // namespace

// The linker's names for the real function and its replacement.
extern "C" {
EVP_PKEY* __real_EVP_PKEY_Q_keygen(OSSL_LIB_CTX* context, const char* properties, const char* type,
                                   ...);

EVP_PKEY* __wrap_EVP_PKEY_Q_keygen(OSSL_LIB_CTX* context, const char* properties, const char* type,
                                   ...) {
  std::va_list args;
  va_start(args, type);
  const bool is_rsa = std::strcmp(type, "RSA") == 0;
  const size_t bits = is_rsa ? va_arg(args, size_t) : 0;
  char* const curve = is_rsa ? nullptr : va_arg(args, char*);
  va_end(args);
  if (!is_rsa) return __real_EVP_PKEY_Q_keygen(context, properties, type, curve);
  if (bits != 2048) return __real_EVP_PKEY_Q_keygen(context, properties, type, bits);
  EVP_PKEY*& key = pool[next_key++ % pool.size()];
  if (key == nullptr) key = __real_EVP_PKEY_Q_keygen(context, properties, type, bits);
  if (key != nullptr) EVP_PKEY_up_ref(key);
  return key;
}
}
