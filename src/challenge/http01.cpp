#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/files.h"
#include "challenge/challenge.h"

namespace kova {
namespace {

constexpr char kWebRoot[] = "/var/lib/letsencrypt";
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kTokenMode = 0644;  // the web server reads it as its own user

// A folder that is already there is as good as a new one. A new one is open to the web server
// whatever the umask of this process.
bool MakeFolder(const std::string& path) {
  if (mkdir(path.c_str(), kFolderMode) != 0) return errno == EEXIST;
  return chmod(path.c_str(), kFolderMode) == 0;
}

bool IsBase64UrlCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

// The token becomes a file name: only what a CA may rightly send is let through.
bool IsPlainToken(const std::string& token) {
  return !token.empty() && std::all_of(token.begin(), token.end(), IsBase64UrlCharacter);
}

}  // namespace

Http01Challenge::~Http01Challenge() { teardown(); }

bool Http01Challenge::setup() {
  if (!IsPlainToken(token)) return false;
  std::string folder = kWebRoot;
  if (!MakeFolder(folder)) return false;
  folder += "/.well-known";
  if (!MakeFolder(folder)) return false;
  folder += "/acme-challenge";
  if (!MakeFolder(folder)) return false;
  WriteTextFile(folder + "/" + token, keyAuthorization, kTokenMode);
  return true;
}

void Http01Challenge::teardown() {
  if (!IsPlainToken(token)) return;
  // The doubled separator is kept; the name is the same file. A missing file is no failure.
  unlink((std::string(kWebRoot) + "/.well-known/acme-challenge/" + "/" + token).c_str());
}

std::string Http01Challenge::type() { return "http-01"; }

bool Http01Challenge::isSupport(const std::string& /*domain*/) { return true; }

}  // namespace kova
