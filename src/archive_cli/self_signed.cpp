// kova-archive self-signed: generates a default certificate set.

#include <filesystem>

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

Reply Run(const Arguments& arguments) {
  const std::string folder = Absolute(arguments.operands[0]);
  Require(mkcert::GenerateDefaultSet(folder));
  Reply reply;
  reply.text = "A certificate set was generated into " + folder + ".\n";
  reply.document["folder"] = folder;
  return reply;
}

}  // namespace

const Command kSelfSigned = {
    "self-signed", "DIR", 1, 1, {}, "Generate a default certificate set into a folder", Run};

}  // namespace kova::archive_cli
