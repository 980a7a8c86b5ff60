#include "archive/paths.h"
#include "archive/utils.h"
#include "base/log.h"
#include "crypto/openssl_ptr.h"

namespace kova::cert_archive {

void LogCryptoErrors(const std::string& message) {
  const BioPtr errors = MemoryBio();
  if (errors == nullptr) {
    LogError(kTag, "Fatal Error. new bio failed.");
    return;
  }
  LogError(kTag, "%s [%s]", message.c_str(), PendingErrors(*errors).c_str());
}

}  // namespace kova::cert_archive
