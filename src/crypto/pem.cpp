#include "crypto/pem.h"

#include <openssl/pem.h>

#include <stdexcept>

#include "crypto/encoding.h"
#include "platform/files.h"

namespace kova {
namespace {

// The library's own way would be a question on the terminal.
int NoPassPhrase(char*, int, int, void*) { return -1; }

}  // namespace

BioPtr OpenPem(const std::string& path) {
  platform::FilePtr file = platform::OpenToRead(path);
  if (file == nullptr) return nullptr;
  BioPtr source(BIO_new_fp(file.get(), BIO_CLOSE));
  if (source != nullptr) (void)file.release();  // the source's now
  return source;
}

BioPtr PemSource(const std::string& text) {
  return BioPtr(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

X509Ptr ReadCertificate(BIO& source) {
  return X509Ptr(PEM_read_bio_X509(&source, nullptr, NoPassPhrase, nullptr));
}

EvpPkeyPtr ReadPrivateKey(BIO& source) {
  return EvpPkeyPtr(PEM_read_bio_PrivateKey(&source, nullptr, NoPassPhrase, nullptr));
}

std::string DerToPem(const std::string& der) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(der.data());
  const X509Ptr certificate(d2i_X509(nullptr, &bytes, static_cast<long>(der.size())));
  const BioPtr text = MemoryBio();
  if (!certificate || !text || PEM_write_bio_X509(text.get(), certificate.get()) != 1) return {};
  return BioText(*text);
}

std::string PemToBase64Url(const std::string& pem, const std::string& begin,
                           const std::string& end) {
  const size_t marker = pem.find(begin);
  if (marker == std::string::npos) throw std::out_of_range("no " + begin);
  const size_t start = marker + begin.size();
  const size_t stop = pem.find(end, start);
  if (stop == std::string::npos) throw std::out_of_range("no " + end);
  std::string text = pem.substr(start, stop - start);
  std::erase(text, '\n');
  ToBase64UrlAlphabet(text);
  return text;
}

}  // namespace kova
