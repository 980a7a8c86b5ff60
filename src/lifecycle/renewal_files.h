// The files of a certificate on their way from a fresh folder to the certificate's own.
#pragma once

#include <string>

#include "lifecycle/archived_certificate.h"

namespace kova {

// Renames kCertificateFiles, in their order, from the fresh folder over those of the old one.
// Throws SLError 202 at the first that fails; those moved before stay moved.
void MoveRenewalFiles(const std::string& fresh, const std::string& old);

// The same for a certificate of the archive, under its lock and noted first, so that a run that is
// killed between two files is made whole by the next. The fresh folder is gone afterwards. The note
// stays: see ForgetRenewal. Throws SLError 202, also when the lock cannot be had; when none was
// moved yet, nothing is noted either, and the next run removes the fresh folder.
void PutInPlace(const ArchivedCertificate& certificate, const std::string& fresh);

// True when files of the certificate were moved and its services may not have them yet.
[[nodiscard]] bool IsRenewalNoted(const ArchivedCertificate& certificate);

// The same of one that the index lists services for: a noted move of another is as good as
// forgotten.
[[nodiscard]] bool IsDeploymentDue(const ArchivedCertificate& certificate);

// Finishes a noted move that was cut short. What fails is logged.
void FinishRenewal(const ArchivedCertificate& certificate);

// Removes the note: the services have the files, or are not to get them from this run.
void ForgetRenewal(const ArchivedCertificate& certificate);

// Unlinks the files of a folder and removes it; failures are silent.
void RemoveFolder(const std::string& folder);

}  // namespace kova
