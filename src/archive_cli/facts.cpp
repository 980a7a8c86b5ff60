#include "archive_cli/facts.h"

#include <array>
#include <ctime>
#include <optional>

#include "archive/integrity.h"
#include "archive/paths.h"
#include "base/json.h"
#include "crypto/certificate.h"
#include "platform/files.h"

namespace kova::archive_cli {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

std::vector<std::string> NamesOf(const Certificate& certificate) {
  std::vector<std::string> names = certificate.AlternativeNames();
  if (!names.empty()) return names;
  std::string common_name = certificate.CommonName();
  if (!common_name.empty()) names.push_back(std::move(common_name));
  return names;
}

std::string IssuerOf(const Certificate& certificate) {
  const std::string organization = certificate.IssuerOrganization();
  return organization.empty() ? certificate.IssuerCommonName() : organization;
}

State StateAt(const Lifetime& lifetime, const DueRule& rule, std::int64_t now) {
  if (lifetime.end <= now) return State::kExpired;
  return IsDue(lifetime, rule, now) ? State::kDue : State::kValid;
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

// A renewal puts its files over those of a default set, and leaves the others of that.
bool IsSelfSigned(const std::string& folder) {
  if (!KLIBCFileExist(folder + "/" + cert_archive::kDefaultMarker)) return false;
  const auto leaf = Certificate::FromFile(folder + "/cert.pem");
  const auto authority = Certificate::FromFile(folder + "/kova-ca-cert.pem");
  return !leaf || !authority || leaf->IsIssuedBy(*authority);
}

}  // namespace

CertificateFacts ReadFacts(const std::string& path, const DueRule& rule, std::int64_t now) {
  CertificateFacts facts;
  const std::optional<Certificate> certificate = Certificate::FromFile(path);
  const std::optional<std::int64_t> end = certificate ? certificate->NotAfter() : std::nullopt;
  if (!end) return facts;
  facts.names = NamesOf(*certificate);
  facts.issuer = IssuerOf(*certificate);
  facts.not_after = *end;
  // One whose beginning cannot be read has no lifetime to be judged by.
  facts.state = StateAt({certificate->NotBefore().value_or(*end), *end}, rule, now);
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
  if (IsSelfSigned(folder)) flags.emplace_back("self-signed");
  if (!cert_archive::IsCanonicalFolder(folder) || !cert_archive::HoldsRequiredFiles(folder)) {
    flags.emplace_back("incomplete");
  }
  return flags;
}

std::string DateText(std::int64_t seconds) { return Formatted(seconds, "%Y-%m-%d"); }

std::string TimeText(std::int64_t seconds) { return Formatted(seconds, "%Y-%m-%dT%H:%M:%SZ"); }

}  // namespace kova::archive_cli
