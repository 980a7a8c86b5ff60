#include "acme_v2/key_change.h"

#include <utility>

#include "acme/next_key.h"
#include "acme/reply.h"
#include "acme_v2/account_update.h"
#include "acme_v2/session.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "crypto/encoding.h"
#include "crypto/secret.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr char kNoAccountProblem[] = "urn:ietf:params:acme:error:accountDoesNotExist";

// Signed by the new key: that it is ours to give. It has no nonce; the request around it has one.
Json::Value Proof(const Account& account, const RsaKey& next, const std::string& url) {
  Json::Value header(Json::objectValue);
  header["alg"] = "RS256";
  header["jwk"] = next.PublicJwk();
  header["url"] = url;
  Json::Value payload(Json::objectValue);
  payload["account"] = account.url;
  payload["oldKey"] = account.key->PublicJwk();
  const std::string encoded_header = Base64UrlEncode(JsonToString(header));
  const std::string encoded_payload = Base64UrlEncode(JsonToString(payload));
  Json::Value proof(Json::objectValue);
  proof["protected"] = encoded_header;
  proof["payload"] = encoded_payload;
  proof["signature"] = next.Sign(encoded_header + "." + encoded_payload);
  return proof;
}

bool IsNoAccount(const HttpResponse& response) {
  Json::Value body;
  return response.status >= 400 && response.status < 500 && JsonFromText(response.body, body) &&
         IsProblem(body, kNoAccountProblem);
}

// A change that was cut short. Where the CA cannot tell, the old key is used and both are kept.
bool HasTaken(Session& session, const Account& changed) {
  try {
    return IsKnownByKey(session, changed);
  } catch (const SLError& error) {
    LogError(kTag, "Failed to find out which key the CA knows. [%s][%s]", changed.folder.c_str(),
             OnOneLine(error.message).c_str());
    return false;
  }
}

}  // namespace

bool IsKnownByKey(Session& session, const Account& account) {
  const HttpResponse response = AskByKey(session, account);
  const std::string url = GetHeader(response, "Location");
  if (response.status == 200 && !url.empty()) return url == account.url;
  if (IsNoAccount(response)) return false;
  throw RefusedByCa(kAccountTag, response);
}

void ChangeKey(Session& session, const Account& account, const RsaKey& next) {
  const std::string url = session.Resource("keyChange");
  if (url.empty()) throw Error(code::kProtocol, kAccountTag, "the CA offers no change of keys");
  const HttpResponse response = session.PostJws(url, Proof(account, next, url));
  if (response.status != 200) throw RefusedByCa(kAccountTag, response);
}

void UseStoredAccount(Session& session, const std::string& folder) {
  const Account account = Account::Load(folder);
  session.Use(account);
  if (!HasNextKey(folder)) return;
  SecretJson next;
  if (!ReadNextKey(folder, next.value)) {
    return LogError(kTag, "%s cannot be used.", NextKeyPath(folder).c_str());
  }
  Account changed = account;
  changed.key = RsaKey::FromJson(next.value);
  const bool taken = HasTaken(session, changed);
  session.Use(taken ? changed : account);
  if (!taken) return;
  DebugStep("The CA knows the account by its next key. [%s]", folder.c_str());
  CommitNextKey(folder, next.value);
}

}  // namespace kova
