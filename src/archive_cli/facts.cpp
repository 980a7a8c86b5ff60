#include "archive_cli/facts.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <array>
#include <ctime>

#include "archive/integrity.h"
#include "archive/paths.h"
#include "base/json.h"
#include "crypto/x509_file.h"
#include "platform/files.h"

namespace kova::archive_cli {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

using NamesPtr = std::unique_ptr<GENERAL_NAMES, cert_archive::CryptoFree<GENERAL_NAMES_free>>;

std::string Bytes(const ASN1_STRING* text) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<size_t>(ASN1_STRING_length(text))};
}

// The first entry of that kind, as UTF-8.
std::string EntryOf(const X509_NAME* name, int kind) {
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

std::vector<std::string> NamesOf(const X509& certificate) {
  std::vector<std::string> names;
  const NamesPtr alternatives(static_cast<GENERAL_NAMES*>(
      X509_get_ext_d2i(&certificate, NID_subject_alt_name, nullptr, nullptr)));
  for (int i = 0; i < sk_GENERAL_NAME_num(alternatives.get()); ++i) {
    std::string name = NameText(*sk_GENERAL_NAME_value(alternatives.get(), i));
    if (!name.empty()) names.push_back(std::move(name));
  }
  if (!names.empty()) return names;
  std::string common_name = EntryOf(X509_get_subject_name(&certificate), NID_commonName);
  if (!common_name.empty()) names.push_back(std::move(common_name));
  return names;
}

std::string IssuerOf(const X509& certificate) {
  const X509_NAME* issuer = X509_get_issuer_name(&certificate);
  const std::string organization = EntryOf(issuer, NID_organizationName);
  return organization.empty() ? EntryOf(issuer, NID_commonName) : organization;
}

State StateAt(std::int64_t not_after, int lead_days, std::int64_t now) {
  if (not_after <= now) return State::kExpired;
  return not_after <= now + lead_days * kSecondsPerDay ? State::kDue : State::kValid;
}

std::string Formatted(std::int64_t seconds, const char* format) {
  const std::time_t moment = seconds;
  std::tm parts{};
  std::array<char, 64> text{};
  gmtime_r(&moment, &parts);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
#pragma GCC diagnostic pop
}

}  // namespace

CertificateFacts ReadFacts(const std::string& path, int lead_days, std::int64_t now) {
  CertificateFacts facts;
  const cert_archive::BioPtr file(BIO_new_file(path.c_str(), "re"));
  const cert_archive::CertificatePtr certificate =
      file == nullptr ? nullptr : cert_archive::ReadCertificate(*file);
  std::tm end{};
  if (certificate == nullptr || ASN1_TIME_to_tm(X509_get0_notAfter(certificate.get()), &end) != 1) {
    ERR_clear_error();
    return facts;
  }
  facts.names = NamesOf(*certificate);
  facts.issuer = IssuerOf(*certificate);
  facts.not_after = timegm(&end);
  facts.state = StateAt(facts.not_after, lead_days, now);
  return facts;
}

std::int64_t DaysLeft(const CertificateFacts& facts, std::int64_t now) {
  const std::int64_t seconds = facts.not_after - now;
  const std::int64_t days = seconds / kSecondsPerDay;
  return seconds % kSecondsPerDay < 0 ? days - 1 : days;
}

const char* Word(State state) {
  switch (state) {
    case State::kValid:
      return "valid";
    case State::kDue:
      return "due";
    case State::kExpired:
      return "expired";
    case State::kUnreadable:
      break;
  }
  return "unreadable";
}

std::vector<std::string> FolderFlags(const std::string& folder) {
  std::vector<std::string> flags;
  Json::Value marker;
  if (KLIBCFileExist(folder + "/renew.json")) flags.emplace_back("acme");
  if (JsonFromFile(folder + "/" + cert_archive::kBrokenMarker, marker) &&
      Member(marker, "is_broken") == Json::Value(true)) {
    flags.emplace_back("broken");
  }
  if (KLIBCFileExist(folder + "/" + cert_archive::kDefaultMarker)) {
    flags.emplace_back("self-signed");
  }
  if (!cert_archive::IsCanonicalFolder(folder) || !cert_archive::HoldsRequiredFiles(folder)) {
    flags.emplace_back("incomplete");
  }
  return flags;
}

std::string DateText(std::int64_t seconds) { return Formatted(seconds, "%Y-%m-%d"); }

std::string TimeText(std::int64_t seconds) { return Formatted(seconds, "%Y-%m-%dT%H:%M:%SZ"); }

}  // namespace kova::archive_cli
