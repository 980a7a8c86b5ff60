#include "acme_v2/account_update.h"

#include "acme/reply.h"
#include "acme_v2/session.h"
#include "base/json.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kUnauthorizedProblem[] = "urn:ietf:params:acme:error:unauthorized";

bool IsUnauthorized(const HttpResponse& response) {
  Json::Value body;
  return (response.status == 401 || response.status == 403) && JsonFromText(response.body, body) &&
         IsProblem(body, kUnauthorizedProblem);
}

// The CA tells of an account that is no longer valid by its status, or has no word for it.
bool IsDeactivated(Session& session, const Account& account) {
  const HttpResponse response = AskByKey(session, account);
  if (IsUnauthorized(response)) return true;
  Json::Value body;
  return response.status == 200 && JsonFromText(response.body, body) &&
         TextMember(body, "status") == "deactivated";
}

}  // namespace

HttpResponse AskByKey(Session& session, const Account& account) {
  Account unnamed = account;
  unnamed.url.clear();  // so the key itself goes along
  session.Use(unnamed);
  session.NewNonce();
  Json::Value question(Json::objectValue);
  question["onlyReturnExisting"] = true;
  HttpResponse response = session.PostJws(session.Resource("newAccount"), question);
  session.Use(account);
  return response;
}

void UpdateContact(Session& session, const Account& account, const std::string& mail) {
  Json::Value payload(Json::objectValue);
  payload["contact"].append("mailto:" + mail);
  const HttpResponse response = session.PostJws(account.url, payload);
  if (response.status != 200) throw RefusedByCa(kAccountTag, response);
}

void Deactivate(Session& session, const Account& account) {
  Json::Value payload(Json::objectValue);
  payload["status"] = "deactivated";
  const HttpResponse response = session.PostJws(account.url, payload);
  if (response.status == 200) return;
  // A run that was killed before it could take the account out of the store had asked before.
  if (IsUnauthorized(response) && IsDeactivated(session, account)) return;
  throw RefusedByCa(kAccountTag, response);
}

}  // namespace kova
