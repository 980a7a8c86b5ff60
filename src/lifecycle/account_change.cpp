#include "lifecycle/account_change.h"

#include <chrono>
#include <memory>
#include <optional>

#include "acme/account_store.h"
#include "acme/issued_folder.h"
#include "acme/next_key.h"
#include "acme_v2/account_update.h"
#include "acme_v2/key_change.h"
#include "acme_v2/session.h"
#include "base/file_lock.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/secret.h"
#include "lifecycle/account_list.h"
#include "lifecycle/renewal_run.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";
constexpr std::chrono::seconds kTimeout{30};
constexpr int kVersion = 2;

SLError Refusal(const std::string& why) { return Error(code::kLocal, kTag, why); }

void RequireChangeable(const StoredAccount& account) {
  const std::string which = "the account [" + account.id + "] ";
  if (!account.readable) throw Refusal(which + "has no usable info.json");
  if (account.version == 1) {
    throw Refusal(which + "is of ACME version 1, which is not supported here");
  }
  if (account.version != kVersion) throw Refusal(which + "is of no known version");
  if (account.url.empty()) throw Refusal(which + "has no URL");
}

// The account, its CA and nobody else, for the life of the object.
class Change {
 public:
  Change(const std::string& id, const Settings& settings)
      : lock_(kTag, kRunLock, kTimeout),
        account_(Locked(id)),
        session_(account_.directory, settings) {}

  [[nodiscard]] const StoredAccount& Stored() const { return account_; }
  [[nodiscard]] Session& Ca() { return session_; }

  // Asks the CA for its directory, and, when a rollover was cut short, which key it knows.
  Account Begin() {
    session_.SetupDirectory();
    UseStoredAccount(session_, account_.folder);
    session_.NewNonce();
    return Account::Load(account_.folder);
  }

 private:
  // Read again under the lock.
  [[nodiscard]] StoredAccount Locked(const std::string& id) const {
    if (!lock_.Held())
      throw Refusal("busy with renew-all or another account: " + lock_.Outcome().Text());
    StoredAccount account = StoredAccountOf(id);
    RequireChangeable(account);
    return account;
  }

  FileLock lock_;
  StoredAccount account_;
  Session session_;
};

// The next key of an earlier run, which the CA may yet be about to take, or a new one.
std::unique_ptr<RsaKey> NextKey(const std::string& folder) {
  SecretJson key;
  if (HasNextKey(folder)) {
    if (ReadNextKey(folder, key.value)) return RsaKey::FromJson(key.value);
    throw Refusal("[" + NextKeyPath(folder) + "] cannot be used");
  }
  std::unique_ptr<RsaKey> made = RsaKey::Generate();
  key.value = made->ToJson();
  WriteNextKey(folder, key.value);
  return made;
}

// None when the CA cannot tell.
std::optional<bool> AskIfKnown(Session& session, const Account& account) {
  try {
    return IsKnownByKey(session, account);
  } catch (const SLError&) {
    return std::nullopt;
  }
}

void ChangeKeyAtCa(Session& session, const Account& account, const std::shared_ptr<RsaKey>& next) {
  SecretJson key;
  key.value = next->ToJson();
  try {
    ChangeKey(session, account, *next);
  } catch (const SLError&) {
    // A reply may have been lost, and another one be about a key that it had taken before.
    const std::optional<bool> known = AskIfKnown(session, {next, account.url, account.folder});
    if (known == false) DropNextKey(account.folder, key.value);
    if (known != true) throw;
  }
  CommitNextKey(account.folder, key.value);
}

void RequireUnused(const StoredAccount& account) {
  if (account.certificates.empty()) return;
  throw Refusal("certificates renew with the account [" + account.id +
                "]: " + JoinNames(account.certificates, ", "));
}

}  // namespace

void UpdateAccount(const std::string& id, const std::string& mail, const Settings& settings) {
  Change change(id, settings);
  const Account account = change.Begin();
  UpdateContact(change.Ca(), account, mail);
  Json::Value info;
  if (!ReadAccountInfo(account.folder, info)) throw Refusal("the account [" + id + "] is gone");
  info["contact"] = mail;
  ReplaceAccountInfo(account.folder, info);
}

Rollover RolloverAccount(const std::string& id, const Settings& settings) {
  Change change(id, settings);
  const bool was_unfinished = change.Stored().rollover_unfinished;
  const Account account = change.Begin();
  if (was_unfinished && !HasNextKey(account.folder)) return Rollover::kFinished;
  ChangeKeyAtCa(change.Ca(), account, NextKey(account.folder));
  return Rollover::kDone;
}

std::vector<std::string> DeactivateAccount(const std::string& id, bool force,
                                           const Settings& settings) {
  Change change(id, settings);
  if (!force) RequireUnused(change.Stored());
  const Account account = change.Begin();
  Deactivate(change.Ca(), account);
  RemoveAccount(account.folder);
  return change.Stored().certificates;
}

}  // namespace kova
