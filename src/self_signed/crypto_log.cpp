#include "self_signed/crypto_log.h"

#include <openssl/bio.h>
#include <openssl/err.h>

#include "base/log.h"
#include "crypto/x509_file.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {

void LogCryptoErrors(const std::string& message) {
  const BioPtr errors(BIO_new(BIO_s_mem()));
  if (errors == nullptr) {
    LogError(kTag, "Fatal Error. new bio failed.");
    return;
  }
  ERR_print_errors(errors.get());
  char* text = nullptr;
  const long length = BIO_get_mem_data(errors.get(), &text);
  LogError(kTag, "%s [%.*s]", message.c_str(), static_cast<int>(length), text);
}

}  // namespace kova::cert_archive
