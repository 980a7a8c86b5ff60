#include <openssl/err.h>

#include "base/log.h"
#include "crypto/pem.h"
#include "platform/files.h"
#include "self_signed/log_tag.h"
#include "self_signed/mkcert.h"

namespace kova::mkcert {
namespace {

BioPtr Open(const std::string& path) {
  BioPtr file = OpenPem(path);
  if (file == nullptr) LogError(kTag, "Failed to BIO_new_file. [%s]", path.c_str());
  return file;
}

int Compare(const std::string& certificate_path, const std::string& key_path) {
  const BioPtr certificate_file = Open(certificate_path);
  const BioPtr key_file = certificate_file != nullptr ? Open(key_path) : nullptr;
  if (key_file == nullptr) return -1;
  const X509Ptr certificate = ReadCertificate(*certificate_file);
  if (certificate == nullptr) {
    LogError(kTag, "Failed to read cert from %s", certificate_path.c_str());
    return -1;
  }
  const EvpPkeyPtr key = ReadPrivateKey(*key_file);
  if (key == nullptr) {
    LogError(kTag, "Failed to read private key from %s", key_path.c_str());
    return -1;
  }
  return X509_check_private_key(certificate.get(), key.get()) == 1 ? 0 : 1;
}

}  // namespace

int MatchKey(const std::string& certificate, const std::string& key) {
  if (KLIBCFileUTF8BomStrip(certificate) != 0 || KLIBCFileUTF8BomStrip(key) != 0) {
    LogError(kTag, "Failed to strip utf8 BOM");
    return -1;
  }
  const int result = Compare(certificate, key);
  ERR_clear_error();  // a mismatch leaves its reason in the library's queue
  return result;
}

}  // namespace kova::mkcert
