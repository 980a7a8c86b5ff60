// Who issued a certificate.
#pragma once

#include <string>

namespace kova {

// The first organisation ("O") of the issuer of a PEM certificate file; empty, with a message in
// the system log, when there is none or the file cannot be read.
std::string IssuerOrganization(const std::string& path);

}  // namespace kova
