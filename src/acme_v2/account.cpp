#include "acme/account_store.h"
#include "acme/reply.h"
#include "acme_v2/client_v2.h"
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

}  // namespace

void AcmeV2Client::SetupAccount(const std::string& contact) {
  const std::string folder = FindAccount(directory_url_, contact);
  if (folder.empty()) {
    DebugStep("Not found registed account. do reg-new.");
    RegisterAccount(contact);
  } else {
    DebugStep("Found registed account. used old account. [%s]", folder.c_str());
    LoadAccount(folder);
  }
}

std::string AcmeV2Client::FindAccount(const std::string& directory, const std::string& contact) {
  for (std::string folder : ListAccounts()) {
    if (folder.back() == '/') folder.pop_back();
    Json::Value info;
    if (!ReadAccountInfo(folder, info)) continue;
    // Without its URL an account could not speak for itself.
    if (TextMember(info, "account_url").empty()) continue;
    if (IsAccountOf(info, directory, contact, kVersion)) return folder;
  }
  return {};
}

void AcmeV2Client::LoadAccount(const std::string& folder) {
  Json::Value info;
  if (!ReadAccountInfo(folder, info)) {
    throw Error(code::kAccountKey, kTag, "failed to load User Info: " + AccountInfoPath(folder));
  }
  SecretJson key;
  if (!ReadAccountKey(folder, key.value)) {
    throw Error(code::kAccountKey, kTag,
                "failed to load User Account key: " + AccountKeyPath(folder));
  }
  key_ = RsaKey::FromJson(key.value);
  account_url_ = TextMember(info, "account_url");
  account_folder_ = folder;
}

void AcmeV2Client::RegisterAccount(const std::string& contact) {
  Json::Value payload(Json::objectValue);
  payload["contact"].append("mailto:" + contact);
  payload["termsOfServiceAgreed"] = true;
  DebugStep("Start new account for %s", contact.c_str());
  ShowStage(contact, "registering an account");
  key_ = RsaKey::Generate();
  const HttpResponse response = PostJws(Resource("newAccount"), payload);
  switch (response.status) {
    case 201:
      account_url_ = GetHeader(response, "Location");
      break;
    case 400:
      throw SLError::FromServerText(code::kAccountRefused, kTag, ProblemDetail(response));
    case 429:
      throw SLError::FromServerText(code::kAccountRateLimit, kTag, ProblemDetail(response));
    default:
      // 200, for a key that the CA knows, is not expected either: the key is new.
      throw Error(code::kProtocol, kTag, "newAccount, unexpect httpcode");
  }
  // Stored without its URL, the account could never be used again.
  if (account_url_.empty()) throw Error(code::kProtocol, kTag, "newAccount, unexpect content");
  DebugStep("New account success of %s", account_url_.c_str());
  StoreAccount(contact);
}

void AcmeV2Client::StoreAccount(const std::string& contact) {
  Json::Value info(Json::objectValue);
  info["version"] = kVersion;
  info["directory"] = directory_url_;
  info["contact"] = contact;
  info["account_url"] = account_url_;
  SecretJson key;
  key.value = key_->ToJson();
  account_folder_ = CreateAccountFolder(kTag, info, key.value);
}

}  // namespace kova
