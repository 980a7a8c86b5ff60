// Small local helpers of the drivers.
#pragma once

#include <string>
#include <vector>

namespace kova {

// The pieces between separators, trimmed of white space, empty ones dropped, order and duplicates
// kept.
std::vector<std::string> SplitDomainList(const std::string& text, char separator = ';');

// Renames cert.pem, chain.pem, fullchain.pem, privkey.pem and renew.json, in this order, from the
// fresh folder over those of the old one. Throws SLError 202 at the first that fails; those moved
// before stay moved.
void MoveRenewalFiles(const std::string& fresh, const std::string& old);

// Unlinks the files of a folder and removes it; failures are silent.
void RemoveFolder(const std::string& folder);

}  // namespace kova
