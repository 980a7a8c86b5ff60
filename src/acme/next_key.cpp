#include "acme/next_key.h"

#include <unistd.h>

#include <chrono>

#include "acme/account_store.h"
#include "base/file_lock.h"
#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "base/status.h"
#include "crypto/secret.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr mode_t kFileMode = 0600;
// Against another process of ours between looking at a key and moving it; never while a CA is
// asked.
constexpr char kLockFile[] = "/run/kova-account.lock";
constexpr std::chrono::seconds kTimeout{30};

// Two keys are the same when their modulus is.
bool IsKey(const Json::Value& stored, const Json::Value& key) {
  const std::string modulus = TextMember(key, "n");
  return !modulus.empty() && TextMember(stored, "n") == modulus;
}

bool IsNextKey(const std::string& folder, const Json::Value& key) {
  SecretJson stored;
  return ReadNextKey(folder, stored.value) && IsKey(stored.value, key);
}

bool IsAccountKey(const std::string& folder, const Json::Value& key) {
  SecretJson stored;
  return ReadAccountKey(folder, stored.value) && IsKey(stored.value, key);
}

[[noreturn]] void Fail(const std::string& what) {
  LogError(kTag, "%s", what.c_str());
  throw Error(code::kLocal, kTag, what);
}

}  // namespace

std::string NextKeyPath(const std::string& folder) { return folder + "/next_key.json"; }

bool HasNextKey(const std::string& folder) { return KLIBCFileExist(NextKeyPath(folder)); }

bool ReadNextKey(const std::string& folder, Json::Value& key) {
  SecretText text;
  text.text = ReadTextFile(NextKeyPath(folder));
  return JsonFromText(text.text, key) && key.isObject();
}

void WriteNextKey(const std::string& folder, const Json::Value& key) {
  SecretText secret;
  secret.text = JsonStyledText(key);
  WriteTextFile(NextKeyPath(folder), secret.text, kFileMode);
}

void CommitNextKey(const std::string& folder, const Json::Value& key) {
  const FileLock lock(kTag, kLockFile, kTimeout);
  if (!lock.Held()) Fail(lock.Outcome().Text());
  if (!IsNextKey(folder, key)) {
    if (IsAccountKey(folder, key)) return;
    Fail("[" + folder + "] was changed by another process");
  }
  const int error = platform::CommitStaged(NextKeyPath(folder), AccountKeyPath(folder));
  if (error != 0) Fail("cannot replace [" + AccountKeyPath(folder) + "]: " + ErrorWords(error));
}

void DropNextKey(const std::string& folder, const Json::Value& key) {
  const FileLock lock(kTag, kLockFile, kTimeout);
  if (lock.Held() && IsNextKey(folder, key)) (void)unlink(NextKeyPath(folder).c_str());
}

}  // namespace kova
