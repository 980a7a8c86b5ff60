// The names of an issuance.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "acme/issue_options.h"

namespace kova {

// The pieces between separators, trimmed of white space, empty ones dropped, order and duplicates
// kept.
std::vector<std::string> SplitDomainList(const std::string& text, char separator = ';');

// Throws SLError 106 when the issuance is for no name. Announces it at debug level 1: server,
// e-mail and each name, which is then given to `check` (may throw).
void AnnounceAndValidate(const IssueOptions& options,
                         const std::function<void(const std::string&)>& check);

}  // namespace kova
