#include <openssl/err.h>

#include <cerrno>

#include "base/log.h"
#include "crypto/pem.h"
#include "platform/files.h"
#include "self_signed/mkcert.h"

namespace kova::mkcert {
namespace {

Status Open(const std::string& path, BioPtr& file) {
  errno = 0;
  file = OpenPem(path);
  if (file != nullptr) return {};
  const int error = errno;
  LogError(kTag, "Failed to BIO_new_file. [%s]", path.c_str());
  return Status::Failed("Failed to open", path, ErrorWords(error));
}

Status Unreadable(const char* message, const std::string& path) {
  LogError(kTag, "%s %s", message, path.c_str());
  return Status::Failed(message, path);
}

Status Compare(const std::string& certificate_path, const std::string& key_path, bool& matches) {
  BioPtr certificate_file;
  BioPtr key_file;
  if (Status opened = Open(certificate_path, certificate_file); !opened) return opened;
  if (Status opened = Open(key_path, key_file); !opened) return opened;
  const X509Ptr certificate = ReadCertificate(*certificate_file);
  if (certificate == nullptr) return Unreadable("Failed to read cert from", certificate_path);
  const EvpPkeyPtr key = ReadPrivateKey(*key_file);
  if (key == nullptr) return Unreadable("Failed to read private key from", key_path);
  matches = X509_check_private_key(certificate.get(), key.get()) == 1;
  return {};
}

Status StripMark(const std::string& path) {
  if (KLIBCFileUTF8BomStrip(path) == 0) return {};
  LogError(kTag, "Failed to strip utf8 BOM");
  return Status::FailedCall("Failed to read", path);
}

}  // namespace

Status MatchKey(const std::string& certificate, const std::string& key, bool& matches) {
  if (Status stripped = StripMark(certificate); !stripped) return stripped;
  if (Status stripped = StripMark(key); !stripped) return stripped;
  Status result = Compare(certificate, key, matches);
  ERR_clear_error();  // a mismatch leaves its reason in the library's queue
  return result;
}

}  // namespace kova::mkcert
