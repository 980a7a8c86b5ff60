#include <array>
#include <cstdio>

#include "acme_v1/acme_v1.h"
#include "base/progress.h"
#include "base/settings.h"
#include "letsencrypt_cli/commands.h"
#include "lifecycle/names.h"
#include "lifecycle/issue.h"
#include "letsencrypt_cli/options.h"
#include "lifecycle/failure.h"
#include "lifecycle/renewal_job.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

std::string Issue(const CommandOptions& options, const Settings& settings) {
  const ProgressLine progress;
  if (options.version == "1") {
    // No wildcard rule here, and no second challenge type: deliberate.
    const auto domains =
        AnnounceDomains(options.domains, options.server, options.email, [](const std::string&) {});
    return IssueWithAcmeV1(options.server, domains, options.email, options.certificate_id);
  }
  if (options.version == "2") {
    return IssueWithAcmeV2(options.server, options.domains, options.email, options.certificate_id,
                           settings);
  }
  std::array<char, 1024> message{};
  std::snprintf(message.data(), message.size(), "Incorrect version specify [%s]",
                options.version.c_str());
  throw Error(code::kLocal, kTag, message.data());
}

}  // namespace

int NewCertCommand(int argc, char** argv) {
  CommandOptions options;
  const Settings settings = Settings::Read();
  options.server = settings.server;
  if (!ParseOptions(argc, argv, "c:s:d:m:p:v::h", options) || options.domains.empty() ||
      options.email.empty()) {
    PrintUsage();
    return 1;
  }
  ApplyDebugSettings(settings);
  const std::optional<SLError> failure = Capture([&options, &settings] {
    const std::string folder = Issue(options, settings);
    AddRenewalJob();  // a certificate without its renewal job is still a success
    PrintSuccess("cert_path", folder);
  });
  if (!failure) return 0;
  PrintFailure(*failure);
  return failure->code;
}

}  // namespace kova
