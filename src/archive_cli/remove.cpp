// kova-archive remove: takes an unused certificate out of the index and deletes its folder.

#include <filesystem>

#include "archive/index.h"
#include "archive/paths.h"
#include "archive/utils.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/reasons.h"
#include "base/json.h"

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
  const Reasons unheard;  // a default certificate that is gone is not what this is about
  if (id == cert_archive::DefaultCertificateId()) {
    throw Failure{"certificate [" + id + "] is the default certificate"};
  }
  const std::string folder = cert_archive::CertificateFolder(id);
  if (FolderExists(folder) && !cert_archive::IsSafeFolder(folder)) {
    throw Failure{"[" + folder + "] is not a folder of the archive"};
  }
}

void TakeOut(const cert_archive::IndexLock& lock, const Reasons& reasons, const std::string& id) {
  const bool done = cert_archive::EditIndex(lock, [&](Json::Value& info) {
    RequireUnused(info, id);
    info.removeMember(id);
    return IndexEdit::kWrite;
  });
  if (!done) throw Failure{reasons.First()};
}

void DeleteFolder(const std::string& folder) {
  const Reasons reasons;
  if (!FolderExists(folder) || cert_archive::RemoveDirectory(folder)) return;
  throw Failure{"out of the index, but its folder is still there: " + reasons.First()};
}

Reply Run(const Arguments& arguments) {
  const std::string& id = arguments.operands[0];
  RequirePlainId(id);
  const Reasons reasons;
  // Held until the folder is gone, so that nobody enters or uses it meanwhile.
  const cert_archive::IndexLock lock(cert_archive::kUpdateTimeout);
  TakeOut(lock, reasons, id);
  DeleteFolder(cert_archive::CertificateFolder(id));
  Reply reply;
  reply.text = id + " is removed.\n";
  reply.document["id"] = id;
  return reply;
}

}  // namespace

const Command kRemove = {"remove", "ID", 1, 1, {}, "Remove a certificate that has no services",
                         Run};

}  // namespace kova::archive_cli
