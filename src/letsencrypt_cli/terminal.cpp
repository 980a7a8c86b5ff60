#include "letsencrypt_cli/terminal.h"

#include <unistd.h>

#include <cstdio>

#include "archive/paths.h"
#include "lifecycle/advice.h"
#include "lifecycle/archived_certificate.h"
#include "lifecycle/names.h"
#include "platform/files.h"
#include "platform/version.h"

namespace kova {
namespace {

constexpr size_t kLongestLine = 2000;

bool IsArchived(const std::string& id) {
  return cert_archive::IsPlainName(id) && KLIBCFileCheckDir(ArchivedCertificate::OfId(id).folder);
}

}  // namespace

void TellPeople(const std::string& text) {
  if (isatty(STDERR_FILENO) == 0) return;
  (void)std::fprintf(stderr, "%s: %s\n", KOVA_PROGRAM_NAME, Visible(text, kLongestLine).c_str());
}

void TellFailure(const SLError& error, const std::vector<std::string>& names) {
  TellPeople(Sentence(Explain(error, names)));
}

void TellMissingRoot() {
  if (geteuid() == 0) return;
  TellPeople(
      "not started as root, so this cannot be finished: accounts, certificates and the renewal job "
      "are root's.");
}

void TellUnknownCertificate(const std::string& id) {
  if (id.empty() || IsArchived(id)) return;
  TellPeople("there is no certificate [" + id + "] in " + kArchiveRoot +
             "; -c takes an id, the last part of a \"cert_path\".");
}

void TellMisreadNames(const CommandOptions& given) {
  if (given.domains_replaced) {
    TellPeople("-d was given more than once, and only the last one counts: [" + given.domains +
               R"(]. Several names go into one -d, with ";" between them.)");
  }
  for (const std::string& name : SplitDomainList(given.domains)) {
    if (name.find(',') == std::string::npos) continue;
    TellPeople("[" + name + R"(] is taken for one name: ";" separates names, not ",".)");
  }
}

void TellMissingOption(const CommandOptions& given) {
  if (given.domains.empty()) TellPeople("new-cert needs host names (-d).");
  if (given.email.empty()) TellPeople("new-cert needs an e-mail address (-m).");
}

}  // namespace kova
