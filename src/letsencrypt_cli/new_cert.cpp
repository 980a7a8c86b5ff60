#include "base/progress.h"
#include "base/renewal_settings.h"
#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "letsencrypt_cli/terminal.h"
#include "lifecycle/failure.h"
#include "lifecycle/issue.h"
#include "lifecycle/names.h"
#include "lifecycle/renewal_job.h"

namespace kova {
namespace {

IssueOptions OptionsOf(const CommandOptions& given, const Settings& settings) {
  IssueOptions options;
  options.server = given.server;
  options.names = SplitDomainList(given.domains);
  options.contact = given.email;
  options.certificate_id = given.certificate_id;
  ChooseKeyType(std::nullopt, settings, options);
  return options;
}

std::string IssueVisibly(const CommandOptions& given, const Settings& settings) {
  const ProgressLine progress;
  return Issue(given.version, OptionsOf(given, settings), settings);
}

// Before the authority is asked for anything.
void TellTraps(const CommandOptions& given) {
  TellMissingRoot();
  TellMisreadNames(given);
  TellUnknownCertificate(given.certificate_id);
}

}  // namespace

int NewCertCommand(int argc, char** argv) {
  const RenewalSettings settings = RenewalSettings::Read();
  CommandOptions given;
  given.server = settings.server;
  const bool parsed = ParseOptions(argc, argv, "c:s:d:m:p:v::h", given);
  if (!parsed || given.domains.empty() || given.email.empty()) {
    PrintUsage();
    if (parsed) TellMissingOption(given);
    return 1;
  }
  TellTraps(given);
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  const std::optional<SLError> failure = Capture([&given, &settings] {
    const std::string folder = IssueVisibly(given, settings);
    AddRenewalJob(settings);  // a certificate without its renewal job is still a success
    PrintSuccess("cert_path", folder);
  });
  if (!failure) return 0;
  if (settings.renew_failures) LogFailure("new-cert", given.domains, *failure);
  PrintFailure(*failure);
  TellFailure(*failure, SplitDomainList(given.domains));
  return failure->code;
}

}  // namespace kova
