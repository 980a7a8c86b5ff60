#include "acme/account_store.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "base/status.h"
#include "base/unfinished_folder.h"
#include "crypto/secret.h"
#include "platform/file_writer.h"

namespace kova {
namespace {

namespace fs = std::filesystem;

constexpr char kProgramFolder[] = "/usr/kova/etc/letsencrypt";
constexpr char kStore[] = "/usr/kova/etc/letsencrypt/account";
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

[[noreturn]] void Fail(const char* tag, const std::string& what) {
  const int reason = errno;
  LogError(tag, "%s. [%d]", what.c_str(), reason);
  throw Error(code::kLocal, tag, what + ".");
}

constexpr char kInfoName[] = "info.json";  // written last
constexpr char kRemovedEnd[] = ".removed";

bool MakeUniqueFolder(UnfinishedFolder& folder) {
  return folder.Make(kStore) && chmod(folder.Path().c_str(), kFolderMode) == 0;
}

// The comparison is exact, types included.
bool IsAccountOf(const Json::Value& info, const std::string& directory, const std::string& contact,
                 int version) {
  return Member(info, "directory") == Json::Value(directory) &&
         Member(info, "contact") == Json::Value(contact) &&
         Member(info, "version") == Json::Value(version);
}

bool ReadObject(const std::string& path, Json::Value& object) {
  return JsonFromFile(path, object) && object.isObject();
}

// Its dot keeps it out of the list.
std::string RemovedName(const fs::path& folder) {
  return folder.parent_path() / ("." + folder.filename().string() + kRemovedEnd);
}

void RemoveTree(const fs::path& path) {
  std::error_code error;
  fs::remove_all(path, error);
  if (error) LogError("client_v2", "Failed to remove %s [%d]", path.c_str(), error.value());
}

void RemoveRemoved() {
  std::error_code error;
  for (fs::directory_iterator entry(kStore, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.starts_with(".") && name.ends_with(kRemovedEnd)) RemoveTree(entry->path());
  }
}

}  // namespace

void RemoveUnfinishedAccounts() {
  RemoveUnfinished(kStore, kInfoName);
  RemoveRemoved();
}

std::vector<std::string> ListAccounts() {
  RemoveUnfinishedAccounts();
  std::vector<std::string> folders;
  if (!ListByPattern(std::string(kStore) + "/*", folders)) {
    throw "glob error";  // NOLINT(misc-throw-by-value-catch-by-reference): see the header
  }
  return folders;
}

std::string AccountFolder(const std::string& name) { return std::string(kStore) + "/" + name; }

void ReplaceAccountInfo(const std::string& folder, const Json::Value& info) {
  WriteTextFile(AccountInfoPath(folder), JsonStyledText(info), kFileMode);
}

void RemoveAccount(const std::string& folder) {
  const std::string removed = RemovedName(folder);
  RemoveTree(removed);
  if (const int error = platform::CommitStaged(folder, removed); error != 0) {
    throw Error(code::kLocal, "client_v2", "cannot remove [" + folder + "]: " + ErrorWords(error));
  }
  RemoveTree(removed);
}

std::string AccountInfoPath(const std::string& folder) { return folder + "/" + kInfoName; }

std::string AccountKeyPath(const std::string& folder) { return folder + "/private_key.json"; }

bool ReadAccountInfo(const std::string& folder, Json::Value& info) {
  return ReadObject(AccountInfoPath(folder), info);
}

bool ReadAccountKey(const std::string& folder, Json::Value& key) {
  SecretText text;
  text.text = ReadTextFile(AccountKeyPath(folder));
  return JsonFromText(text.text, key) && key.isObject();
}

std::string FirstAccount(
    const std::vector<std::string>& folders, const std::string& directory,
    const std::string& contact, int version,
    const std::function<bool(const std::string& folder, const Json::Value& info)>& is_usable) {
  for (const std::string& folder : folders) {
    Json::Value info;
    if (ReadAccountInfo(folder, info) && IsAccountOf(info, directory, contact, version) &&
        is_usable(folder, info)) {
      return folder;
    }
  }
  return {};
}

std::string CreateAccountFolder(const char* tag, const Json::Value& info, const Json::Value& key) {
  if (!MakeFolder(kProgramFolder, kFolderMode))
    Fail(tag, "Failed to create folder for let's encrypt");
  if (!MakeFolder(kStore, kFolderMode)) Fail(tag, "Failed to create folder for account");
  UnfinishedFolder folder;
  if (!MakeUniqueFolder(folder)) Fail(tag, "Failed to create folder for account item");
  std::string path = folder.Path();
  // The key first: a folder is taken for an account as soon as it holds info.json, so one that a
  // crash left half written is passed over.
  SecretText secret;
  secret.text = JsonStyledText(key);
  WriteTextFile(AccountKeyPath(path), secret.text, kFileMode);
  WriteTextFile(AccountInfoPath(path), JsonStyledText(info), kFileMode);
  if (!folder.Keep()) Fail(tag, "Failed to create folder for account item");
  return path;
}

}  // namespace kova
