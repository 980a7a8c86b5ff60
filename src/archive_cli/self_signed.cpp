// kova-archive self-signed: generates a default certificate set.

#include <filesystem>

#include "archive/certificate_lock.h"
#include "archive/noted_move.h"
#include "archive/paths.h"
#include "archive_cli/command.h"
#include "self_signed/default_set.h"

namespace kova::archive_cli {
namespace {

// The tools get absolute paths only: a name that begins with "-" must not become an option.
std::string Absolute(const std::string& folder) {
  if (folder.empty()) return folder;
  std::error_code error;
  const std::filesystem::path absolute = std::filesystem::absolute(folder, error);
  if (error) throw Failure{"[" + folder + "]: " + error.message()};
  return absolute.lexically_normal();
}

// A certificate's folder is filled under its lock: else a renewal could put one half of its files
// before these and the other half after them.
void Generate(const std::string& folder) {
  const std::string id = cert_archive::CertificateIdOfPath(folder);
  if (id.empty()) return Require(mkcert::GenerateDefaultSet(folder));
  const cert_archive::CertificateLock certificate(id);
  Require(certificate.Outcome());
  Require(cert_archive::FinishNotedMove(certificate));  // else it would end over this set
  Require(mkcert::GenerateDefaultSet(folder));
}

Reply Run(const Arguments& arguments) {
  const std::string folder = Absolute(arguments.operands[0]);
  Generate(folder);
  Reply reply;
  reply.text = "A certificate set was generated into " + folder + ".\n";
  reply.document["folder"] = folder;
  return reply;
}

}  // namespace

const Command kSelfSigned = {
    "self-signed", "DIR", 1, 1, {}, "Generate a default certificate set into a folder", Run};

}  // namespace kova::archive_cli
