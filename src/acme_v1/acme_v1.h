// The one door to the early protocol. The drivers know nothing of it but these two calls, so that
// it can be taken out by deleting this folder and its calls.
#pragma once

#include <string>

#include "acme/issue_options.h"
#include "base/settings.h"

namespace kova {

// Obtains a certificate for the names (one at least); returns the archive folder that holds it.
// Throws SLError.
std::string IssueWithAcmeV1(const IssueOptions& options, const Settings& settings);

// Revokes the certificate of an archive folder with the account of that account folder. The folder
// stays as it is. Throws SLError.
void RevokeWithAcmeV1(const std::string& server, const std::string& account_folder,
                      const std::string& folder, const Settings& settings);

}  // namespace kova
