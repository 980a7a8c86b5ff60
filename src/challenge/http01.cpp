#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "base/files.h"
#include "challenge/challenge.h"

namespace kova {
namespace {

constexpr char kWebRoot[] = "/var/lib/letsencrypt";
constexpr mode_t kFolderMode = 0755;
constexpr mode_t kTokenMode = 0644;  // the web server reads it as its own user

bool IsBase64UrlCharacter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

// The token becomes a file name: only what a CA may rightly send is let through.
bool IsPlainToken(const std::string& token) {
  return !token.empty() && std::all_of(token.begin(), token.end(), IsBase64UrlCharacter);
}

bool IsLinked(int file) {
  struct stat status {};
  return fstat(file, &status) == 0 && status.st_nlink > 0;
}

bool Lock(int file) { return flock(file, LOCK_EX | LOCK_NB) == 0; }

platform::Fd OpenToken(const std::string& path) {
  return platform::Fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

// A killed run's proof for the same account: `proof_end` is "." and the account's thumbprint. Other
// clients publish theirs in this folder, too.
void RemoveLeftover(const std::filesystem::path& path, const std::string& proof_end) {
  const platform::Fd file = OpenToken(path);
  if (!file || ReadTextFile(path) != path.filename().string() + proof_end) return;
  if (Lock(file.Get())) unlink(path.c_str());
}

void RemoveLeftovers(const std::string& folder, const std::string& proof_end) {
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  for (const std::filesystem::directory_iterator end; !error && entry != end;
       entry.increment(error)) {
    if (entry->is_regular_file(error)) RemoveLeftover(entry->path(), proof_end);
  }
}

// Published and held as long as the result lives, so that no other run takes it for a leftover. One
// may have come between the two.
platform::Fd Publish(const std::string& path, const std::string& proof) {
  constexpr int kAttempts = 5;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    WriteTextFile(path, proof, kTokenMode);
    platform::Fd file = OpenToken(path);
    if (!file || !Lock(file.Get()) || IsLinked(file.Get())) return file;
  }
  return {};
}

}  // namespace

Http01Challenge::~Http01Challenge() { teardown(); }

bool Http01Challenge::setup() {
  if (!IsPlainToken(token)) return false;
  std::string folder = kWebRoot;
  for (const char* part : {"", "/.well-known", "/acme-challenge"}) {
    folder += part;
    if (!MakeFolder(folder, kFolderMode)) return false;
  }
  if (keyAuthorization.starts_with(token)) {
    RemoveLeftovers(folder, keyAuthorization.substr(token.size()));
  }
  held_ = Publish(folder + "/" + token, keyAuthorization);
  return true;
}

void Http01Challenge::teardown() {
  if (!IsPlainToken(token)) return;
  // The doubled separator is kept; the name is the same file. A missing file is no failure, and any
  // other is silent: it is tried once more, because the next proof may be months away.
  const std::string path = std::string(kWebRoot) + "/.well-known/acme-challenge/" + "/" + token;
  if (unlink(path.c_str()) != 0 && errno != ENOENT) (void)unlink(path.c_str());
}

std::string Http01Challenge::type() { return "http-01"; }

bool Http01Challenge::isSupport(const std::string& /*domain*/) { return true; }

}  // namespace kova
