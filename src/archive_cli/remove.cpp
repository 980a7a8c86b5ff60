// kova-archive remove: takes an unused certificate out of the index and deletes its folder.

#include <filesystem>

#include "archive/certificate_lock.h"
#include "archive/index.h"
#include "archive/noted_move.h"
#include "archive/paths.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "base/json.h"
#include "lifecycle/removal.h"

namespace kova::archive_cli {
namespace {

using cert_archive::IndexEdit;

bool FolderExists(const std::string& folder) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(folder, error));
}

void RequireUnused(const Json::Value& info, const std::string& id) {
  RequireEntry(info, id);
  const Json::Value& services = Member(info[id], "services");
  if (!services.isNull() && !services.isArray()) {
    throw Failure{"certificate [" + id + "] has a damaged service list"};
  }
  if (!services.empty()) {
    throw Failure{"certificate [" + id + "] has services: " + Joined(ServiceTitles(info, id))};
  }
  std::string default_id;
  Require(cert_archive::ReadDefaultCertificate(default_id, cert_archive::GoneDefault::kIsNone),
          "cannot tell whether it is the default certificate: ");
  if (id == default_id) {
    throw Failure{"certificate [" + id + "] is the default certificate"};
  }
  const std::string folder = cert_archive::CertificateFolder(id);
  if (FolderExists(folder) && !cert_archive::IsSafeFolder(folder)) {
    throw Failure{"[" + folder + "] is not a folder of the archive"};
  }
}

Status TakeOut(const cert_archive::IndexLock& lock, const std::string& id) {
  return cert_archive::EditIndex(lock, [&](Json::Value& info) {
    RequireUnused(info, id);
    NoteRemoval(id);
    info.removeMember(id);
    return IndexEdit::kWrite;
  });
}

void TakeOutNoted(const cert_archive::IndexLock& lock, const std::string& id) {
  if (WasRemovalCutShort(lock, id)) return;
  const Status taken = TakeOut(lock, id);
  if (!taken && !WasRemovalCutShort(lock, id)) ForgetRemoval(id);
  Require(taken);
}

Reply Run(const Arguments& arguments) {
  const std::string& id = arguments.operands[0];
  RequirePlainId(id);
  // Both held until the folder is gone, so that nobody enters, copies or heals it meanwhile.
  const cert_archive::CertificateLock certificate(id);
  Require(certificate.Outcome());
  Require(cert_archive::FinishNotedMove(certificate));  // else its fresh folder would stay
  const cert_archive::IndexLock lock(cert_archive::kUpdateTimeout);
  TakeOutNoted(lock, id);
  Require(FinishRemoval(certificate, lock), "out of the index, but its folder is still there: ");
  Reply reply;
  reply.text = id + " is removed.\n";
  reply.document["id"] = id;
  return reply;
}

}  // namespace

const Command kRemove = {"remove", "ID", 1, 1, {}, "Remove a certificate that has no services",
                         Run};

}  // namespace kova::archive_cli
