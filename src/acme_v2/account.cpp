#include "acme_v2/account.h"

#include <algorithm>
#include <utility>

#include "acme/account_store.h"
#include "acme/reply.h"
#include "acme_v2/key_change.h"
#include "acme_v2/session.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/secret.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kVersion = 2;

Json::Value Registration(const Session& session, const RsaKey& key, const std::string& contact) {
  Json::Value payload(Json::objectValue);
  const Json::Value binding =
      AccountBinding(session.DirectoryUrl(), session.Resource("newAccount"), key.PublicJwk());
  if (!binding.isNull()) payload["externalAccountBinding"] = binding;
  payload["contact"].append("mailto:" + contact);
  payload["termsOfServiceAgreed"] = true;
  return payload;
}

// Returns the folder.
std::string Store(const Account& account, const std::string& directory,
                  const std::string& contact) {
  Json::Value info(Json::objectValue);
  info["version"] = kVersion;
  info["directory"] = directory;
  info["contact"] = contact;
  info["account_url"] = account.url;
  SecretJson key;
  key.value = account.key->ToJson();
  return CreateAccountFolder(kTag, info, key.value);
}

}  // namespace

std::string Account::Find(const std::string& directory, const std::string& contact) {
  std::vector<std::string> folders = ListAccounts();
  for (std::string& folder : folders) {
    if (folder.back() == '/') folder.pop_back();
  }
  // Anew: with the "/" at its end, "abc-d" had come before "abc".
  std::sort(folders.begin(), folders.end());
  return FirstAccount(folders, directory, contact, kVersion,
                      [](const std::string& /*folder*/, const Json::Value& info) {
                        // Without its URL an account could not speak for itself.
                        return !TextMember(info, "account_url").empty();
                      });
}

Account Account::Load(const std::string& folder) {
  RemoveUnfinishedAccounts();  // a renewal comes by here and nowhere else
  Json::Value info;
  if (!ReadAccountInfo(folder, info)) {
    throw Error(code::kAccountKey, kTag, "failed to load User Info: " + AccountInfoPath(folder));
  }
  SecretJson key;
  if (!ReadAccountKey(folder, key.value)) {
    throw Error(code::kAccountKey, kTag,
                "failed to load User Account key: " + AccountKeyPath(folder));
  }
  return {RsaKey::FromJson(key.value), TextMember(info, "account_url"), folder};
}

void Account::Register(Session& session, const std::string& contact) {
  DebugStep("Start new account for %s", contact.c_str());
  ShowStage(contact, "registering an account");
  Account account{RsaKey::Generate(), {}, {}};
  session.Use(account);
  const HttpResponse response =
      session.PostJws(session.Resource("newAccount"), Registration(session, *account.key, contact));
  // 200, for a key that the CA knows, is not expected either: the key is new.
  RequireRegistered(kTag, response, "newAccount, unexpect httpcode");
  account.url = GetHeader(response, "Location");
  // Stored without its URL, the account could never be used again.
  if (account.url.empty()) throw Error(code::kProtocol, kTag, "newAccount, unexpect content");
  DebugStep("New account success of %s", account.url.c_str());
  account.folder = Store(account, session.DirectoryUrl(), contact);
  session.Use(account);
}

void Account::Setup(Session& session, const std::string& contact) {
  const std::string folder = Find(session.DirectoryUrl(), contact);
  if (folder.empty()) {
    DebugStep("Not found registed account. do reg-new.");
    Register(session, contact);
  } else {
    DebugStep("Found registed account. used old account. [%s]", folder.c_str());
    UseStoredAccount(session, folder);
  }
}

}  // namespace kova
