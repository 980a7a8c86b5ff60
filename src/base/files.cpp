#include "base/files.h"

#include <glob.h>

#include <cerrno>
#include <cstring>

#include "base/sl_error.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

// The causes that show only once data is on its way to the disk.
bool IsStorageFailure(int error) {
  return error == ENOSPC || error == EDQUOT || error == EIO || error == EFBIG;
}

}  // namespace

std::string ReadTextFile(const std::string& path) {
  std::string content;
  if (!platform::ReadWholeFile(path, content)) return {};
  return content;
}

bool ListByPattern(const std::string& pattern, std::vector<std::string>& matches) {
  glob_t found{};
  const int result = glob(pattern.c_str(), GLOB_MARK, nullptr, &found);
  if (result == 0) matches.insert(matches.end(), found.gl_pathv, found.gl_pathv + found.gl_pathc);
  globfree(&found);
  return result == 0 || result == GLOB_NOMATCH;
}

bool MakeFolder(const std::string& path, mode_t mode) {
  const int error = platform::MakeFolder(path, mode);
  return error == 0 || error == EEXIST;
}

void WriteTextFile(const std::string& path, const std::string& content, mode_t mode) {
  const platform::WriteResult result = platform::ReplaceFile(path, content, mode);
  const int error = result;
  if (error == 0) return;
  if (result.InPlace()) {
    throw Error(code::kLocal, kTag,
                "Failed to flush the folder of " + path + ": " + std::strerror(error));
  }
  if (IsStorageFailure(error)) {
    throw Error(code::kLocal, kTag, "Failed to write " + path + ": " + std::strerror(error));
  }
  throw Error(code::kLocal, kTag, "Failed to chmod.");
}

}  // namespace kova
