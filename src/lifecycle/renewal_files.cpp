#include "lifecycle/renewal_files.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "acme/renewal_record.h"
#include "archive/certificate_lock.h"
#include "archive/index.h"
#include "archive/noted_move.h"
#include "base/files.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "base/unfinished_folder.h"
#include "platform/error.h"
#include "platform/files.h"

namespace kova {
namespace {

using cert_archive::CertificateLock;

constexpr char kTag[] = "utils";

SLError MoveError(const std::string& from, const std::string& to, int reason) {
  std::array<char, 1024> message{};
  (void)std::snprintf(message.data(), message.size(), "Rename file failed. %s => %s [%d]",
                      from.c_str(), to.c_str(), reason);
  return Error(code::kLocal, kTag, message.data());
}

void MoveFile(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) throw MoveError(from, to, errno);
}

// Told as the failure of the first file's move, which it prevents.
SLError NotMoved(const std::string& fresh, const std::string& old, int reason) {
  const std::string first = std::string("/") + kCertificateFiles[0];
  return MoveError(fresh + first, old + first, reason);
}

// A note that cannot be written (it is logged) costs the renewal only when an earlier move is still
// unfinished: going on would mix the two.
void Note(const CertificateLock& lock, const std::string& fresh, const std::string& old) {
  const std::vector<std::string> files(kCertificateFiles.begin(), kCertificateFiles.end());
  if (cert_archive::NoteMove(lock, fresh, files)) return;
  if (cert_archive::IsMoveNoted(lock.Id())) throw NotMoved(fresh, old, EBUSY);
}

bool IsWhole(const std::string& fresh) {
  return KLIBCFileExist(fresh + "/" + kCertificateFiles[0]);
}

// An id that is no plain name has neither lock nor note.
bool CanBeNoted(const ArchivedCertificate& certificate) {
  return cert_archive::IsPlainName(certificate.id);
}

}  // namespace

void MoveRenewalFiles(const std::string& fresh, const std::string& old) {
  // From here on the fresh folder is wanted, should this run be killed.
  if (!KeepUnfinished(fresh)) throw Error(code::kLocal, kTag, "Failed to keep " + fresh);
  for (const char* name : kCertificateFiles) MoveFile(fresh + "/" + name, old + "/" + name);
}

void PutInPlace(const ArchivedCertificate& certificate, const std::string& fresh) {
  if (!CanBeNoted(certificate)) return MoveRenewalFiles(fresh, certificate.folder);
  const CertificateLock lock(certificate.id);
  if (!lock.Held()) throw NotMoved(fresh, certificate.folder, KLIBCErrGet());
  Note(lock, fresh, certificate.folder);
  try {
    MoveRenewalFiles(fresh, certificate.folder);
  } catch (...) {
    if (IsWhole(fresh)) {
      (void)cert_archive::ForgetMove(lock);
      MarkUnfinished(fresh);
    }
    throw;
  }
  (void)cert_archive::FinishNotedMove(lock);
}

bool IsRenewalNoted(const ArchivedCertificate& certificate) {
  return CanBeNoted(certificate) && cert_archive::IsMoveNoted(certificate.id);
}

bool IsDeploymentDue(const ArchivedCertificate& certificate) {
  if (!IsRenewalNoted(certificate)) return false;
  Json::Value info;
  if (!cert_archive::ReadIndexObject(info)) return true;  // nobody can tell
  return !Member(Member(info, certificate.id.c_str()), "services").empty();
}

void FinishRenewal(const ArchivedCertificate& certificate) {
  if (CanBeNoted(certificate)) (void)cert_archive::FinishNotedMove(certificate.id);
}

void ForgetRenewal(const ArchivedCertificate& certificate) {
  if (!IsRenewalNoted(certificate)) return;
  const CertificateLock lock(certificate.id);
  // Another process may have noted one since.
  if (cert_archive::FinishNotedMove(lock)) (void)cert_archive::ForgetMove(lock);
}

void RemoveFolder(const std::string& folder) {
  std::vector<std::string> files;
  if (folder.empty() || !ListByPattern(folder + "/*", files)) return;
  for (const std::string& file : files) unlink(file.c_str());
  rmdir(folder.c_str());
}

}  // namespace kova
