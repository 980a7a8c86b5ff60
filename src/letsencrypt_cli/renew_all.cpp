#include "lifecycle/renew_all.h"

#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "letsencrypt_cli/terminal.h"

namespace kova {

int RenewAllCommand(int argc, char** argv) {
  CommandOptions given;
  if (!ParseOptions(argc, argv, "v::", given)) {
    PrintUsage();
    return 1;
  }
  TellMissingRoot();
  const RenewalSettings settings = RenewalSettings::Read();
  ApplyDebugSettings(settings);
  TellIgnoredKeys(settings);
  RenewAll(settings, [](const SLError& failure) {
    PrintFailure(failure);
    TellFailure(failure, {});
  });
  return 0;
}

}  // namespace kova
