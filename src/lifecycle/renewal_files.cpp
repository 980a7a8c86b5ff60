#include "lifecycle/renewal_files.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "acme/renewal_record.h"
#include "base/files.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

void MoveFile(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return;
  const int reason = errno;
  std::array<char, 1024> message{};
  std::snprintf(message.data(), message.size(), "Rename file failed. %s => %s [%d]", from.c_str(),
                to.c_str(), reason);
  throw Error(code::kLocal, kTag, message.data());
}

}  // namespace

void MoveRenewalFiles(const std::string& fresh, const std::string& old) {
  for (const char* name : kCertificateFiles) MoveFile(fresh + "/" + name, old + "/" + name);
}

void RemoveFolder(const std::string& folder) {
  std::vector<std::string> files;
  if (folder.empty() || !ListByPattern(folder + "/*", files)) return;
  for (const std::string& file : files) unlink(file.c_str());
  rmdir(folder.c_str());
}

}  // namespace kova
