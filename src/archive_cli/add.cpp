// kova-archive add: enters a folder of the archive in the index.

#include "archive/certificate_lock.h"
#include "archive/index.h"
#include "archive/noted_move.h"
#include "archive/paths.h"
#include "archive_cli/changes.h"
#include "archive_cli/entries.h"
#include "base/json.h"
#include "lifecycle/removal.h"
#include "platform/files.h"
#include "self_signed/mkcert.h"

namespace kova::archive_cli {
namespace {

using cert_archive::IndexEdit;

void RequireMatch(const std::string& folder, const char* certificate) {
  bool matches = false;
  Require(mkcert::MatchKey(folder + "/" + certificate, folder + "/privkey.pem", matches));
  if (!matches) throw Failure{std::string(certificate) + " is not for the key in privkey.pem"};
}

void RequireUsableFolder(const std::string& folder) {
  if (!cert_archive::IsSafeFolder(folder)) {
    throw Failure{"[" + folder + "] is not a folder of the archive"};
  }
  for (const char* name : cert_archive::kRequiredFiles) {
    if (!KLIBCFileExist(folder + "/" + name)) {
      throw Failure{"[" + folder + "] lacks " + name};
    }
  }
  RequireMatch(folder, "cert.pem");
  RequireMatch(folder, "fullchain.pem");
}

Json::Value NewEntry(const std::optional<std::string>& description) {
  Json::Value entry;
  if (description) entry["desc"] = *description;
  entry["services"] = Json::Value(Json::arrayValue);
  return entry;
}

}  // namespace

bool AddToIndex(const std::string& id, const std::optional<std::string>& description) {
  FinishRemovals();
  bool added = false;
  const cert_archive::CertificateLock certificate(id);  // key and certificate are compared
  Require(certificate.Outcome());
  Require(cert_archive::FinishNotedMove(certificate));
  Require(cert_archive::EditIndex(
      cert_archive::kUpdateTimeout,
      [&](Json::Value& info) {
        if (HasMember(info, id.c_str())) return IndexEdit::kLeave;
        RequireUsableFolder(cert_archive::CertificateFolder(id));
        info[id] = NewEntry(description);
        added = true;
        return IndexEdit::kWrite;
      },
      cert_archive::MissingIndex::kIsEmpty));
  return added;
}

namespace {

Reply Run(const Arguments& arguments) {
  const std::string id = IdOf(arguments.operands[0]);
  RequirePlainId(id);
  std::optional<std::string> description;
  if (arguments.Has("desc")) description = arguments.Text("desc");
  const bool added = AddToIndex(id, description);
  Reply reply;
  reply.text = id + (added ? " is in the index now.\n" : " was in the index already.\n");
  reply.document["id"] = id;
  reply.document["added"] = added;
  return reply;
}

}  // namespace

const Command kAdd = {"add",
                      "ID",
                      1,
                      1,
                      {{"desc", "TEXT", false, "keep a description with it"}},
                      "Enter a certificate folder in the index",
                      Run};

}  // namespace kova::archive_cli
