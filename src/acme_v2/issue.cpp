#include "acme_v2/issue.h"

#include "acme/issued_folder.h"
#include "acme/key_and_request.h"
#include "base/debug.h"
#include "base/progress.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kRecordVersion = 2;

// Chosen for the certificate, or else by the settings.
std::string PreferredChainOf(const Session& session, const IssueOptions& options) {
  if (!options.preferred_chain.empty()) return options.preferred_chain;
  return session.CurrentSettings().preferred_chain.value_or("");
}

}  // namespace

std::string Issue(Session& session, const Order& order, const IssueOptions& options,
                  CertificateKey& key) {
  const KeyAndRequest made(kTag, order.names, key);
  const Json::Value finalized =
      FinalizeOrder(session, order, session.DerText(made.request_pem, kRequestBegin, kRequestEnd));
  const std::string chain = DownloadChain(session, finalized, PreferredChainOf(session, options));
  if (session.CurrentSettings().check_issued) {
    RequireFitting(kTag, chain, made.private_key.text, order.names);
  }

  DebugStep("save to files");
  ShowStage("", "storing the certificate");
  RenewalRecord record;
  record.version = kRecordVersion;
  record.server = session.DirectoryUrl();
  record.account = session.AccountFolder();
  record.domains = JoinNames(order.names, ";");
  if (options.keeps_key_type) record.key_type = NameOf(options.key_type);
  record.profile = options.profile;
  record.preferred_chain = options.preferred_chain;
  return SaveCertificate(kTag, options.certificate_id, SplitChain(chain), made.private_key.text,
                         record);
}

}  // namespace kova
