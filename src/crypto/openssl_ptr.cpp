#include "crypto/openssl_ptr.h"

#include <openssl/err.h>

namespace kova {

BioPtr MemoryBio() { return BioPtr(BIO_new(BIO_s_mem())); }

std::string BioText(BIO& memory) {
  char* text = nullptr;
  const long length = BIO_get_mem_data(&memory, &text);
  return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

std::string PendingErrors(BIO& memory) {
  ERR_print_errors(&memory);
  return BioText(memory);
}

}  // namespace kova
