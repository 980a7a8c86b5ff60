// The one door to the early protocol. The drivers know nothing of it but these two calls, so that
// it can be taken out by deleting this folder and its calls.
#pragma once

#include <string>
#include <vector>

namespace kova {

// Obtains a certificate for `domains` (not empty); returns the archive folder that holds it. Throws
// SLError.
std::string IssueWithAcmeV1(const std::string& server, const std::vector<std::string>& domains,
                            const std::string& email, const std::string& certificate_id);

// Revokes the certificate of an archive folder with the account of that account folder. The folder
// stays as it is. Throws SLError.
void RevokeWithAcmeV1(const std::string& server, const std::string& account_folder,
                      const std::string& folder);

}  // namespace kova
