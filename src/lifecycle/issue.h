// Obtaining a certificate.
#pragma once

#include <optional>
#include <string>

#include "acme/issue_options.h"
#include "base/settings.h"

namespace kova {

// Fills in the key type: `chosen` for this certificate (by a command line, or in its record), else
// the settings' one, else rsa2048. A text that names none is one line in the log and counts as
// none.
void ChooseKeyType(const std::optional<std::string>& chosen, const Settings& settings,
                   IssueOptions& options);

// Obtains a certificate through ACME v2 and returns the archive folder that holds it. Tries the
// challenge types in turn. Throws SLError; a name of a single star throws std::out_of_range.
std::string IssueWithAcmeV2(const IssueOptions& options, const Settings& settings);

// The same through that version of the protocol, "1" or "2". Any other is SLError 202.
std::string Issue(const std::string& version, const IssueOptions& options,
                  const Settings& settings);

}  // namespace kova
