// What a CA sends as a certificate or a chain, and what stands in the archive's PEM files.
#include <openssl/err.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "acme/issued_folder.h"
#include "archive/integrity.h"
#include "crypto/certificate.h"
#include "crypto/pem.h"
#include "host_files.h"
#include "property.h"

namespace {

constexpr char kFile[] = "/run/kova-fuzz.pem";

void Split(const std::string& text) {
  const auto pems = kova::SplitChain(text);
  if (!pems) return;
  KOVA_REQUIRE(pems->fullchain == text);
  KOVA_REQUIRE(pems->cert.starts_with(kova::kCertificateBegin));
  KOVA_REQUIRE(pems->cert.ends_with(kova::kCertificateEnd));
  KOVA_REQUIRE(pems->chain.starts_with(kova::kCertificateBegin));
  KOVA_REQUIRE(text.find(pems->cert) < text.rfind(pems->chain));
}

void Encode(const std::string& text) {
  try {
    const std::string encoded =
        kova::PemToBase64Url(text, kova::kCertificateBegin, kova::kCertificateEnd);
    KOVA_REQUIRE(encoded.find_first_of("+/\n") == std::string::npos);
  } catch (const std::out_of_range&) {
    // No such block.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Split(text);
  Encode(text);
  const std::string pem = kova::DerToPem(text);
  KOVA_REQUIRE(pem.empty() || pem.starts_with(kova::kCertificateBegin));
  for (const std::string& content : {text, pem}) {
    kova::test::WriteFile(kFile, content);
    (void)kova::IssuerOrganization(kFile);
    (void)kova::cert_archive::ExpiresWithin(kFile, 30);
  }
  ERR_clear_error();
  return 0;
}
