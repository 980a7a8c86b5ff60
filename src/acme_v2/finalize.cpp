#include <chrono>

#include "acme/reply.h"
#include "acme_v2/issue.h"
#include "acme_v2/patience.h"
#include "base/json.h"
#include "base/log.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr std::chrono::milliseconds kFirstPause{100};

// Some CAs say by null or an empty text that there is none yet.
bool HasCertificate(const Json::Value& order) {
  const Json::Value& url = Member(order, "certificate");
  return !url.isNull() && url != Json::Value("");
}

bool IsProcessing(const Json::Value& order) {
  return !HasCertificate(order) && TextMember(order, "status") == "processing";
}

bool IsIssued(const Json::Value& order) {
  return TextMember(order, "status") == "valid" && HasCertificate(order);
}

bool IsReady(const Json::Value& order) { return TextMember(order, "status") == "ready"; }

bool IsOrderNotReady(const HttpResponse& response) {
  Json::Value body;
  return response.status == 403 && JsonFromText(response.body, body) &&
         IsProblem(body, kOrderNotReadyProblem);
}

void RequireFinalized(const HttpResponse& response) {
  if (response.status == 200) return;
  if (response.status == 400 && IsProblem(GetJsonBody(response), kBadNonceProblem)) {
    LogError(kTag, "Failed to new cert due to badnonce");
    throw Error(code::kBadNonceFinalize, kTag, "badnonce for new-cert");
  }
  // The log and the message do not consult the reply's own error, on purpose.
  LogError(kTag, "Failed to new cert with %s (%s) [%ld]", "unknown", "unknown", response.status);
  throw WithCause(Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (new-cert)"),
                  response);
}

// Throws when the CA has given the order up.
void RequireAlive(const Json::Value& order) {
  if (TextMember(order, "status") != "invalid") return;
  throw SLError::FromServerText(code::kProtocol, kTag,
                                TextMember(Member(order, "error"), "detail"));
}

Json::Value FetchOrder(Session& session, const std::string& url, HttpResponse& response) {
  response = session.PostAsGet(url);
  if (response.status != 200) {
    LogError(kTag, "Failed to fetch order %s [%ld]", url.c_str(), response.status);
    throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (order)");
  }
  return ObjectBody(kTag, response);
}

// Fetches the order again until `done` holds for it.
Json::Value AwaitOrder(Session& session, const std::string& url, HttpResponse reply,
                       bool (*done)(const Json::Value& order)) {
  Patience patience(kFirstPause, "Order timeout");
  for (;;) {
    patience.PauseAfter(reply);
    Json::Value order = FetchOrder(session, url, reply);
    if (done(order)) return order;
    RequireAlive(order);
  }
}

}  // namespace

// Without `asyncfinalize` the CA must answer at once; the order's status is then not looked at.
Json::Value FinalizeOrder(Session& session, const Order& order, const std::string& csr) {
  const bool patient = session.CurrentSettings().async_finalize;
  Json::Value payload(Json::objectValue);
  payload["csr"] = csr;
  HttpResponse response = session.PostJws(order.finalize, payload);
  if (patient && IsOrderNotReady(response)) {
    AwaitOrder(session, order.url, response, IsReady);
    response = session.PostJws(order.finalize, payload);
  }
  RequireFinalized(response);
  Json::Value finalized = ObjectBody(kTag, response);
  if (!patient) return finalized;
  RequireAlive(finalized);
  if (!IsProcessing(finalized)) return finalized;
  return AwaitOrder(session, order.url, response, IsIssued);
}

}  // namespace kova
