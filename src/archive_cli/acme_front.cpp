#include "archive_cli/acme_front.h"

#include <unistd.h>

#include <ctime>

#include "archive/paths.h"
#include "archive_cli/entries.h"
#include "lifecycle/advice.h"

namespace kova::archive_cli {

void RequireRoot() {
  if (geteuid() != 0) throw Failure{"only root can do this"};
}

RenewalSettings ReadSettings() {
  RenewalSettings settings = RenewalSettings::Read();
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  return settings;
}

ArchivedCertificate RequireCertificate(const std::string& id_or_folder) {
  const std::string id = IdOf(id_or_folder);
  RequirePlainId(id);
  ArchivedCertificate certificate = ArchivedCertificate::OfId(id);
  if (!cert_archive::IsSafeFolder(certificate.folder)) {
    throw Failure{"[" + certificate.folder + "] is not a folder of the archive"};
  }
  return certificate;
}

std::string Validity(const CertificateFacts& facts) {
  if (facts.state == State::kUnreadable) return "not to be read";
  const std::int64_t days = DaysLeft(facts, std::time(nullptr));
  return "valid until " + DateText(facts.not_after) + " (" + std::to_string(days) + " days left)";
}

void Explain(Reply& reply, const SLError& error, const std::vector<std::string>& names,
             const std::string& before) {
  const Explanation explanation = kova::Explain(error, names);
  reply.failure = before + Sentence(explanation);
  reply.document["code"] = explanation.code;
  reply.document["name"] = explanation.name;
  reply.document["detail"] = explanation.detail;
  reply.document["advice"] = explanation.advice;
}

}  // namespace kova::archive_cli
