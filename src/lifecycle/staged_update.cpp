#include "lifecycle/staged_update.h"

#include <optional>

#include "acme/renewal_record.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "base/unfinished_folder.h"
#include "lifecycle/failure.h"
#include "lifecycle/renewal_files.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

SLError NotSaved(const std::string& reason) {
  LogError(kTag, "%s", OnOneLine(reason).c_str());
  SLError error = Error(code::kLocal, kTag, "Failed to save pems");
  error.cause = reason;
  return error;
}

// The first file of the set moves first.
bool HasAllFiles(const std::string& fresh) {
  return KLIBCFileExist(fresh + "/" + kCertificateFiles[0]);
}

void Discard(const std::string& fresh) {
  RemoveFolder(fresh);
  (void)KeepUnfinished(fresh);  // its mark
}

}  // namespace

void RequireFolder(const ArchivedCertificate& certificate) {
  if (KLIBCFileCheckDir(certificate.folder)) return;
  throw NotSaved("Folder not exist. [" + certificate.folder + "]");
}

void ReplaceSet(const ArchivedCertificate& certificate, const std::string& fresh) {
  const bool still_to_be_deployed = IsDeploymentDue(certificate);
  const std::optional<SLError> failure = Capture([&] { PutInPlace(certificate, fresh); });
  if (!failure || HasAllFiles(fresh)) Discard(fresh);
  if (failure) throw NotSaved(failure->message);
  if (!still_to_be_deployed) ForgetRenewal(certificate);
}

}  // namespace kova
