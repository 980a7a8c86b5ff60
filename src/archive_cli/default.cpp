// kova-archive default: shows or sets the default certificate.

#include <sys/stat.h>

#include <cstring>

#include "archive/index.h"
#include "archive/paths.h"
#include "archive_cli/changes.h"
#include "archive_cli/entries.h"
#include "platform/file_writer.h"

namespace kova::archive_cli {
namespace {

using cert_archive::IndexEdit;

constexpr mode_t kNewFileMode = 0600;

mode_t FileMode() {
  struct stat status {};
  if (stat(cert_archive::kDefaultPath, &status) != 0) return kNewFileMode;
  return status.st_mode & 0777;
}

void RequirePossible(const Json::Value& info, const std::string& id) {
  RequireEntry(info, id);
  const std::string folder = cert_archive::CertificateFolder(id);
  if (!cert_archive::IsSafeFolder(folder)) {
    throw Failure{"certificate [" + id + "] has no folder [" + folder + "]"};
  }
  if (id.size() > static_cast<size_t>(cert_archive::kLongestDefaultId)) {
    throw Failure{"the id [" + id + "] is longer than " +
                  std::to_string(cert_archive::kLongestDefaultId) +
                  " characters, which is all that is read of the default certificate's"};
  }
}

}  // namespace

// Under the index lock, so that nobody removes the certificate meanwhile.
void SetDefault(const std::string& id) {
  RequirePlainId(id);
  Require(cert_archive::EditIndex(cert_archive::kUpdateTimeout, [&](Json::Value& info) {
    RequirePossible(info, id);
    const int error = platform::ReplaceFile(cert_archive::kDefaultPath, id + "\n", FileMode());
    if (error != 0) {
      throw Failure{std::string("cannot write ") + cert_archive::kDefaultPath + ": " +
                    std::strerror(error)};
    }
    return IndexEdit::kLeave;
  }));
}

namespace {

std::string Get() {
  std::string id;
  Require(cert_archive::ReadDefaultCertificate(id));
  return id;
}

Reply Run(const Arguments& arguments) {
  Reply reply;
  if (!arguments.operands.empty()) SetDefault(arguments.operands[0]);
  const std::string id = arguments.operands.empty() ? Get() : arguments.operands[0];
  reply.document["default"] = id.empty() ? Json::Value() : Json::Value(id);
  if (arguments.operands.empty()) {
    reply.text = id.empty() ? "" : id + "\n";
  } else {
    reply.text = id + " is the default certificate now.\n";
  }
  return reply;
}

}  // namespace

const Command kDefault = {"default", "[ID]", 0, 1, {}, "Show or set the default certificate", Run};

}  // namespace kova::archive_cli
