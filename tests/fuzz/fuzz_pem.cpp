// The reader of PEM texts and files: certificates, chains and private keys.
#include <cstdint>
#include <string>
#include <vector>

#include "crypto/certificate.h"
#include "crypto/pem.h"
#include "host_files.h"
#include "property.h"

namespace {

constexpr char kFile[] = "/run/kova-fuzz.pem";

void Ask(const kova::Certificate& certificate) {
  for (const std::string& name : certificate.AlternativeNames()) KOVA_REQUIRE(!name.empty());
  (void)certificate.CommonName();
  (void)certificate.IssuerOrganization();
  (void)certificate.IssuerOrganizationBytes();
  (void)certificate.IssuerCommonName();
  (void)certificate.AuthorityKeyId();
  (void)certificate.Serial();
  (void)certificate.IsIssuedBy(certificate);
  const auto end = certificate.NotAfter();
  KOVA_REQUIRE(!end || (certificate.EndsBy(*end + 1) && !certificate.EndsBy(*end - 1)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const std::vector<kova::Certificate> chain = kova::Certificate::ChainFromText(text);
  kova::test::WriteFile(kFile, text);
  const auto first = kova::Certificate::FromFile(kFile);
  KOVA_REQUIRE(chain.empty() || first);
  for (const kova::Certificate& certificate : chain) Ask(certificate);
  if (first) {
    Ask(*first);
    (void)first->FitsKeyText(text);
  }
  const kova::BioPtr source = kova::PemSource(text);
  while (const kova::EvpPkeyPtr key = kova::ReadPrivateKey(*source)) {
    if (first) (void)first->Fits(*key);
  }
  return 0;
}
