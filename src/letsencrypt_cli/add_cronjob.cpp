#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/terminal.h"
#include "lifecycle/renewal_job.h"

namespace kova {

// The arguments are ignored, and so is whether the job could be added.
int AddCronjobCommand(int /*argc*/, char** /*argv*/) {
  TellMissingRoot();
  const RenewalSettings settings = RenewalSettings::Read();
  TellIgnoredKeys(settings);
  AddRenewalJobWhenNeeded(settings);
  return 0;
}

}  // namespace kova
