#include "archive_cli/reload_example.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova::archive_cli {
namespace {

constexpr std::array kServers = {"apache2", "dovecot", "haproxy", "nginx", "postfix"};

// Where an installation has its documentation, and where the package has it.
constexpr std::array kExampleFolders = {
    "/usr/kova/share/doc/kova-letsencrypt/examples/reload/",
    "/usr/share/doc/kova-letsencrypt/examples/reload/",
};

constexpr mode_t kFolderMode = 0755;
constexpr mode_t kScriptMode = 0755;

void RequireServer(const std::string& server) {
  if (std::find(kServers.begin(), kServers.end(), server) != kServers.end()) return;
  std::string all;
  for (const char* known : kServers) all += std::string(all.empty() ? "" : ", ") + known;
  throw UsageError{"--reload knows no server [" + server + "], but " + all};
}

// Links count as well, wherever they lead.
bool IsThere(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

void MakeFolderOf(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/'));
  if (KLIBCFileCheckDir(folder)) return;
  if (KOVAFSMkdirP(folder, 0, 1, 0, 0, kFolderMode) < 0) throw Failure{"cannot make " + folder};
}

}  // namespace

void ReloadScriptReport::AddTo(Reply& reply) const {
  if (path.empty()) return;
  reply.text += made ? "Its reload script is " + path + " now.\n"
                     : "Its reload script " + path + " was there and is left as it is.\n";
  reply.document["reload_script"] = path;
  reply.document["reload_script_made"] = made;
}

ReloadExample ReloadExample::Named(const std::string& server) {
  RequireServer(server);
  std::string text;
  for (const char* folder : kExampleFolders) {
    if (platform::ReadWholeFile(folder + server, text)) return {server, text};
  }
  throw Failure{"the example of a reload script for " + server + " is not installed"};
}

ReloadScriptReport ReloadExample::PutInPlace(const cert_archive::Service& service) const {
  const std::string path = service.ReloadScript();
  if (IsThere(path)) return {path, false};
  MakeFolderOf(path);
  if (const int error = platform::ReplaceFile(path, text_, kScriptMode); error != 0) {
    throw Failure{"cannot write " + path + ": " + std::strerror(error)};
  }
  return {path, true};
}

}  // namespace kova::archive_cli
