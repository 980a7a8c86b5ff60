// What the commands that speak to a CA have in common.
#pragma once

#include <string>
#include <vector>

#include "archive_cli/command.h"
#include "archive_cli/facts.h"
#include "base/renewal_settings.h"
#include "base/sl_error.h"
#include "lifecycle/archived_certificate.h"

namespace kova::archive_cli {

// Throws Failure unless this process is root's: what follows could not be brought to its end.
void RequireRoot();

// The settings, with what has to be said about them said.
RenewalSettings ReadSettings();

// The certificate of the archive with that id, or that folder. Throws Failure when there is none.
ArchivedCertificate RequireCertificate(const std::string& id_or_folder);

// "valid until 2027-02-19 (89 days left)".
std::string Validity(const CertificateFacts& facts);

// Adds to the reply why it failed, with what to try, in words and (code, name, detail, advice) for
// programs. `names` are those that the CA was asked about.
void Explain(Reply& reply, const SLError& error, const std::vector<std::string>& names,
             const std::string& before = "");

}  // namespace kova::archive_cli
