// A certificate of the archive that is obtained anew under its id, with the settings' stagedupdate:
// its old set stays until the new one is whole.
#pragma once

#include <string>

#include "lifecycle/archived_certificate.h"

namespace kova {

// Throws SLError 202 "Failed to save pems" when the certificate has no folder. Before an authority
// is asked for anything.
void RequireFolder(const ArchivedCertificate& certificate);

// Moves the set of the fresh folder, which must be one of the archive, into the certificate's, as a
// renewal does, and removes the fresh folder. Throws SLError 202 "Failed to save pems", what failed
// in the log: the old set is then as it was, or, when a file had moved, the next command that needs
// the certificate moves the rest.
void ReplaceSet(const ArchivedCertificate& certificate, const std::string& fresh);

}  // namespace kova
