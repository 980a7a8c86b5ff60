// The files of a certificate on their way from a fresh folder to the certificate's own.
#pragma once

#include <string>

namespace kova {

// Renames kCertificateFiles, in their order, from the fresh folder over those of the old one.
// Throws SLError 202 at the first that fails; those moved before stay moved.
void MoveRenewalFiles(const std::string& fresh, const std::string& old);

// Unlinks the files of a folder and removes it; failures are silent.
void RemoveFolder(const std::string& folder);

}  // namespace kova
