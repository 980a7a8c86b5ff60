#include "lifecycle/issue.h"

#include <array>
#include <cstdio>
#include <exception>

#include "acme_v1/acme_v1.h"
#include "acme_v2/client_v2.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "base/unfinished_folder.h"
#include "challenge/challenge.h"
#include "lifecycle/failure.h"
#include "lifecycle/names.h"
#include "lifecycle/removal.h"
#include "lifecycle/renewal_files.h"
#include "lifecycle/staged_update.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

// The settings' `orderattempts`: how many failed attempts in a row may leave all challenge types
// where they were (a refused order, a challenge that could not be set up, a failed finalize).
// Without that key such attempts are repeated without bound and without a wait.
class AttemptBound {
 public:
  explicit AttemptBound(int bound) : bound_(bound) {}

  // True when another attempt may be made. Waits as the CA asks between two such attempts.
  bool Continue(const AcmeV2Client& client) {
    if (client.TypeUsedUp()) {
      in_a_row_ = 0;
      return true;
    }
    if (bound_ < 1) return true;
    if (++in_a_row_ >= bound_) return false;
    ShowStage("", "waiting before the next attempt");
    WaitVisibly(client.RetryDelay());
    return true;
  }

 private:
  int bound_;  // 0: none
  int in_a_row_ = 0;
};

// A wildcard can only be proved by dns-01, which serves the vendor's zone, and with a hook any.
void RequireProvable(const std::string& domain) {
  if (domain.front() != '*' || IsKovaDdnsHost(domain.substr(2))) return;
  if (HookDns01Challenge::IsAvailable()) return;
  LogError(kTag, "Only Kova ddns suppport wildcard function");
  throw SLError(code::kNotKovaDdns, kTag, __LINE__, "%s is not Kova ddns", domain.c_str());
}

void LogFailedAttempt(const std::string& reason) {
  LogError(kTag, "Failed to do new authorization, may retry with another type. [%s]",
           reason.c_str());
}

// One order after the other until one gives a certificate or no challenge type is left.
std::string IssueWithAnyType(AcmeV2Client& client, const IssueOptions& options, CertificateKey& key,
                             int order_attempts) {
  AttemptBound bound(order_attempts);
  SLError last = Error(code::kRefused, kTag, "Failed to new certificate.");
  while (client.HasChallengeTypes()) {
    try {
      const Order order = client.NewOrder(options.names, options.profile);
      client.AuthorizeOrder(order);
      return client.NewCertificate(order, options, key);
    } catch (const SLError& error) {
      LogFailedAttempt(ErrorToLine(error));
      last.code = error.code;
      last.name = error.name;
      last.cause = error.cause.empty() ? error.message : error.cause;
    } catch (const std::exception& error) {
      LogFailedAttempt(OnOneLine(error.what()));
    }
    if (!bound.Continue(client)) break;
  }
  throw SLError(last);
}

// No wildcard rule here, and no second challenge type: deliberate.
std::string IssueWithEarlyProtocol(const IssueOptions& options, const Settings& settings) {
  AnnounceAndValidate(options, [](const std::string&) {});
  return IssueWithAcmeV1(options, settings);
}

std::optional<KeyType> KeyTypeOf(const std::optional<std::string>& name) {
  if (!name) return std::nullopt;
  const std::optional<KeyType> type = ParseKeyType(*name);
  if (!type) LogError(kTag, "Ignored key type [%s]", OnOneLine(*name).c_str());
  return type;
}

SLError IncorrectVersion(const std::string& version) {
  std::array<char, 1024> message{};
  (void)std::snprintf(message.data(), message.size(), "Incorrect version specify [%s]",
                      version.c_str());
  return Error(code::kLocal, kTag, message.data());
}

}  // namespace

void ChooseKeyType(const std::optional<std::string>& chosen, const Settings& settings,
                   IssueOptions& options) {
  const std::optional<KeyType> kept = KeyTypeOf(chosen);
  options.keeps_key_type = kept.has_value();
  options.key_type = kept ? *kept : KeyTypeOf(settings.key_type).value_or(KeyType::kRsa2048);
}

std::string IssueWithAcmeV2(const IssueOptions& options, const Settings& settings) {
  AnnounceAndValidate(options, RequireProvable);
  CertificateKey key(options.key_type);
  key.MakeAhead();
  AcmeV2Client client(options.server, settings);
  ShowStage("", "contacting " + options.server);
  client.SetupDirectory();
  if (options.requires_profile) client.RequireProfile(options.profile);
  client.NewNonce();
  client.SetupAccount(options.contact);
  return IssueWithAnyType(client, options, key, settings.order_attempts);
}

namespace {

// The folder may go again when this run ends.
std::string IssueMarked(const std::string& version, const IssueOptions& options,
                        const Settings& settings) {
  return version == "1" ? IssueWithEarlyProtocol(options, settings)
                        : IssueWithAcmeV2(options, settings);
}

std::string IssueInPlace(const std::string& version, const IssueOptions& options,
                         const Settings& settings) {
  std::string folder = IssueMarked(version, options, settings);
  if (!KeepUnfinished(folder)) throw Error(code::kLocal, kTag, "Failed to save pems");
  return folder;
}

std::string IssueStaged(const std::string& version, IssueOptions options,
                        const Settings& settings) {
  const auto certificate = ArchivedCertificate::OfId(options.certificate_id);
  RequireFolder(certificate);
  options.certificate_id.clear();  // a fresh folder
  ReplaceSet(certificate, IssueMarked(version, options, settings));
  return certificate.folder;
}

}  // namespace

std::string Issue(const std::string& version, const IssueOptions& options,
                  const Settings& settings) {
  if (version != "1" && version != "2") throw IncorrectVersion(version);
  FinishRemovals();
  if (options.certificate_id.empty()) return IssueInPlace(version, options, settings);
  // The rest of a move that was cut short must not come over what is stored now.
  FinishRenewal(ArchivedCertificate::OfId(options.certificate_id));
  return settings.staged_update ? IssueStaged(version, options, settings)
                                : IssueInPlace(version, options, settings);
}

}  // namespace kova
