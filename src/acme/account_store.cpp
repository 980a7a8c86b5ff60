#include "acme/account_store.h"

#include <sys/stat.h>

#include <cerrno>

#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "base/unfinished_folder.h"
#include "crypto/secret.h"

namespace kova {
namespace {

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

}  // namespace

void RemoveUnfinishedAccounts() { RemoveUnfinished(kStore, kInfoName); }

std::vector<std::string> ListAccounts() {
  RemoveUnfinishedAccounts();
  std::vector<std::string> folders;
  if (!ListByPattern(std::string(kStore) + "/*", folders)) {
    throw "glob error";  // NOLINT(misc-throw-by-value-catch-by-reference): see the header
  }
  return folders;
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
