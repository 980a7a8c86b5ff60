// What went wrong with a certificate since it was obtained: its last renewal, and the reload
// scripts of its services. All of it is shown on one line each.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "archive_cli/command.h"
#include "base/renewal_settings.h"
#include "lifecycle/renewal_history.h"

namespace kova::archive_cli {

// What the settings have remembered; empty when that is nothing. `id` must be a plain name for
// both.
RenewalHistory RememberedRenewals(const std::string& id, const RenewalSettings& settings);

// "renewal fails since TIME (N in a row): MESSAGE [CODE]". Empty when the last attempt succeeded.
std::string RenewalFailure(const RenewalHistory& history);

// "the reload script of SUBSCRIBER/SERVICE ended with status N" for each of the services (titles as
// in the index) that is marked.
std::vector<std::string> ReloadFailuresOf(const Json::Value& marks,
                                          const std::vector<std::string>& services);

// Warns of the same after those services were deployed with the certificate `id`, a plain name.
void WarnOfReloads(const std::string& id, const std::vector<std::string>& services, Reply& reply);

}  // namespace kova::archive_cli
