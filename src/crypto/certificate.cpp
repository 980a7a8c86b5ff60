#include "crypto/certificate.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <ctime>

#include "crypto/pem.h"

namespace kova {
namespace {

using NamesPtr = std::unique_ptr<GENERAL_NAMES, OpensslFree<GENERAL_NAMES_free>>;

// What the library has to say about a question is nobody's to hear later.
struct ErrorsForgotten {
  ErrorsForgotten() = default;
  ~ErrorsForgotten() { ERR_clear_error(); }
  ErrorsForgotten(const ErrorsForgotten&) = delete;
  ErrorsForgotten& operator=(const ErrorsForgotten&) = delete;
};

std::string Bytes(const ASN1_STRING* text) {
  if (text == nullptr) return {};
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<size_t>(ASN1_STRING_length(text))};
}

// The first entry of that kind, as UTF-8.
std::string EntryOf(const X509_NAME* name, int kind) {
  const ErrorsForgotten errors;
  const int index = X509_NAME_get_index_by_NID(name, kind, -1);
  if (index < 0) return {};
  unsigned char* text = nullptr;
  const int length =
      ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
  if (length < 0) return {};
  std::string entry(reinterpret_cast<const char*>(text), static_cast<size_t>(length));
  OPENSSL_free(text);
  return entry;
}

std::string AddressText(const std::string& bytes) {
  std::array<char, INET6_ADDRSTRLEN> text{};
  const int family = bytes.size() == sizeof(in_addr) ? AF_INET : AF_INET6;
  if (family == AF_INET6 && bytes.size() != sizeof(in6_addr)) return {};
  const char* address = inet_ntop(family, bytes.data(), text.data(), text.size());
  return address == nullptr ? std::string() : address;
}

std::string NameText(const GENERAL_NAME& name) {
  if (name.type == GEN_DNS) return Bytes(name.d.dNSName);
  if (name.type == GEN_IPADD) return AddressText(Bytes(name.d.iPAddress));
  return {};
}

std::optional<std::int64_t> Seconds(const ASN1_TIME* time) {
  const ErrorsForgotten errors;
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) return std::nullopt;
  return timegm(&parts);
}

}  // namespace

Certificate::Certificate(X509Ptr certificate) : certificate_(std::move(certificate)) {}

std::optional<Certificate> Certificate::FromFile(const std::string& path) {
  const ErrorsForgotten errors;
  const BioPtr file = OpenPem(path);
  if (file == nullptr) return std::nullopt;
  X509Ptr certificate = ReadCertificate(*file);
  if (certificate == nullptr) return std::nullopt;
  return Certificate(std::move(certificate));
}

std::vector<Certificate> Certificate::ChainFromText(const std::string& pem) {
  // Whoever reads it from a file would see it end at a line that begins so.
  if (pem.find('\0') != std::string::npos) return {};
  const ErrorsForgotten errors;
  ERR_clear_error();  // the last error below is to be of this reading
  const BioPtr source = PemSource(pem);
  if (source == nullptr) return {};
  std::vector<Certificate> chain;
  while (X509Ptr certificate = ReadCertificate(*source)) chain.emplace_back(std::move(certificate));
  // The text's regular end is that no further one begins.
  if (ERR_GET_REASON(ERR_peek_last_error()) != PEM_R_NO_START_LINE) return {};
  return chain;
}

std::vector<std::string> Certificate::AlternativeNames() const {
  const ErrorsForgotten errors;
  const NamesPtr alternatives(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(certificate_.get(), NID_subject_alt_name, nullptr, nullptr)));
  std::vector<std::string> names;
  for (int i = 0; i < sk_GENERAL_NAME_num(alternatives.get()); ++i) {
    std::string name = NameText(*sk_GENERAL_NAME_value(alternatives.get(), i));
    if (!name.empty()) names.push_back(std::move(name));
  }
  return names;
}

std::string Certificate::CommonName() const {
  return EntryOf(X509_get_subject_name(certificate_.get()), NID_commonName);
}

std::string Certificate::IssuerOrganization() const {
  return EntryOf(X509_get_issuer_name(certificate_.get()), NID_organizationName);
}

std::string Certificate::IssuerOrganizationBytes() const {
  const X509_NAME* issuer = X509_get_issuer_name(certificate_.get());
  const int index = X509_NAME_get_index_by_NID(issuer, NID_organizationName, -1);
  if (index < 0) return {};
  return Bytes(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(issuer, index)));
}

std::string Certificate::IssuerCommonName() const {
  return EntryOf(X509_get_issuer_name(certificate_.get()), NID_commonName);
}

std::optional<std::int64_t> Certificate::NotBefore() const {
  return Seconds(X509_get0_notBefore(certificate_.get()));
}

std::optional<std::int64_t> Certificate::NotAfter() const {
  return Seconds(X509_get0_notAfter(certificate_.get()));
}

bool Certificate::EndsBy(std::int64_t moment) const {
  const ErrorsForgotten errors;
  std::time_t limit = moment;
  return X509_cmp_time(X509_get0_notAfter(certificate_.get()), &limit) < 0;
}

std::string Certificate::Serial() const {
  const ErrorsForgotten errors;
  unsigned char* der = nullptr;
  const int size = i2d_ASN1_INTEGER(X509_get0_serialNumber(certificate_.get()), &der);
  if (size < 0) return {};
  const unsigned char* content = der;
  long length = 0;
  int tag = 0;
  int kind = 0;
  (void)ASN1_get_object(&content, &length, &tag, &kind, size);  // it was just made
  std::string serial(reinterpret_cast<const char*>(content), static_cast<size_t>(length));
  OPENSSL_free(der);
  return serial;
}

std::string Certificate::AuthorityKeyId() const {
  const ErrorsForgotten errors;
  return Bytes(X509_get0_authority_key_id(certificate_.get()));
}

bool Certificate::Fits(const EVP_PKEY& private_key) const {
  const ErrorsForgotten errors;
  return X509_check_private_key(certificate_.get(), &private_key) == 1;
}

bool Certificate::FitsKeyText(const std::string& private_key_pem) const {
  const ErrorsForgotten errors;
  const BioPtr source = PemSource(private_key_pem);
  const EvpPkeyPtr key = source == nullptr ? nullptr : ReadPrivateKey(*source);
  return key != nullptr && Fits(*key);
}

bool Certificate::IsIssuedBy(const Certificate& issuer) const {
  const ErrorsForgotten errors;
  EVP_PKEY* key = X509_get0_pubkey(issuer.certificate_.get());
  return key != nullptr &&
         X509_check_issued(issuer.certificate_.get(), certificate_.get()) == X509_V_OK &&
         X509_verify(certificate_.get(), key) == 1;
}

}  // namespace kova
