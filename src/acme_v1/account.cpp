#include "acme/account_store.h"
#include "acme/reply.h"
#include "acme_v1/client_v1.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/secret.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v1";
constexpr int kVersion = 1;

}  // namespace

void AcmeV1Client::UseOrRegister(const std::string& contact) {
  const std::string folder = FindAccount(directory_url_, contact);
  if (folder.empty()) {
    DebugStep("Not found registed account. do reg-new.");
    Register(contact);
  } else {
    DebugStep("Found registed account. used old account. [%s]", folder.c_str());
    LoadAccountKey(folder);
  }
}

std::string AcmeV1Client::FindAccount(const std::string& directory, const std::string& contact) {
  // An account whose key is lost is passed over, a later one may fit as well. The path is the
  // listed one on purpose: renewal records of this protocol name a used account with the "/" at its
  // end.
  return FirstAccount(ListAccounts(), directory, contact, kVersion,
                      [](const std::string& folder, const Json::Value& /*info*/) {
                        SecretJson key;
                        return ReadAccountKey(folder, key.value);
                      });
}

void AcmeV1Client::LoadAccountKey(const std::string& folder) {
  SecretJson key;
  if (!ReadAccountKey(folder, key.value)) {
    throw Error(code::kAccountKey, kTag,
                "failed to load User Account key: " + AccountKeyPath(folder));
  }
  key_ = RsaKey::FromJson(key.value);
  account_folder_ = folder;
}

void AcmeV1Client::Register(const std::string& contact) {
  ShowStage(contact, "registering an account");
  key_ = RsaKey::Generate();
  Json::Value payload(Json::objectValue);
  payload["resource"] = "new-reg";
  payload["contact"].append("mailto:" + contact);
  const HttpResponse response = PostJws(Resource("new-reg"), payload);
  RequireRegistered(kTag, response, "new-req, unexpect httpcode");
  const std::string terms_url = GetLinkUrl(response, "terms-of-service");
  const std::string registration_url = GetHeader(response, "Location");
  if (terms_url.empty() || registration_url.empty()) {
    throw Error(code::kProtocol, kTag, "new-req, unexpect content");
  }
  Agree(registration_url, payload["contact"], terms_url);
  StoreAccount(contact);
}

// The terms of service are agreed to without asking.
void AcmeV1Client::Agree(const std::string& registration_url, const Json::Value& contacts,
                         const std::string& terms_url) {
  Json::Value payload(Json::objectValue);
  payload["resource"] = "reg";
  payload["contact"] = contacts;
  payload["agreement"] = terms_url;
  if (PostJws(registration_url, payload).status != 202) {
    throw Error(code::kProtocol, kTag, "req, unexpect httpcode");
  }
}

// This protocol has no use for the account's URL: every request carries the key.
void AcmeV1Client::StoreAccount(const std::string& contact) {
  Json::Value info(Json::objectValue);
  info["version"] = kVersion;
  info["directory"] = directory_url_;
  info["contact"] = contact;
  SecretJson key;
  key.value = key_->ToJson();
  account_folder_ = CreateAccountFolder(kTag, info, key.value);
}

}  // namespace kova
