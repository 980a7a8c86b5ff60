#include <algorithm>
#include <chrono>

#include "acme/reply.h"
#include "acme_v2/issue.h"
#include "base/json.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "net/retry_after.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr std::chrono::seconds kDefaultPollPause{1};
constexpr std::chrono::seconds kOrderTimeout{60};

bool IsProcessing(const Json::Value& order) {
  return !HasMember(order, "certificate") && TextMember(order, "status") == "processing";
}

bool IsIssued(const Json::Value& order) {
  return TextMember(order, "status") == "valid" && HasMember(order, "certificate");
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
  // The reply's own error is not consulted here, on purpose.
  LogError(kTag, "Failed to new cert with %s (%s) [%ld]", "unknown", "unknown", response.status);
  throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (new-cert)");
}

// Fetches the order again, at the pace that the CA asks for, until `done` holds for it.
Json::Value AwaitOrder(Session& session, const std::string& url, const HttpResponse& reply,
                       bool (*done)(const Json::Value& order)) {
  // Time on the wire counts as well as the pauses.
  const auto start = std::chrono::steady_clock::now();
  std::chrono::seconds paused{0};
  HttpResponse response = reply;
  for (;;) {
    const std::chrono::seconds pause = RetryAfter(response, kDefaultPollPause);
    const auto spent = std::max<std::chrono::steady_clock::duration>(
        paused, std::chrono::steady_clock::now() - start);
    if (spent + pause > kOrderTimeout) throw Error(code::kRefused, kTag, "Order timeout");
    WaitVisibly(pause);
    paused += pause;
    response = session.PostAsGet(url);
    if (response.status != 200) {
      LogError(kTag, "Failed to fetch order %s [%ld]", url.c_str(), response.status);
      throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (order)");
    }
    Json::Value order = ObjectBody(kTag, response);
    if (done(order)) return order;
    if (TextMember(order, "status") == "invalid") {
      throw SLError::FromServerText(code::kProtocol, kTag,
                                    TextMember(Member(order, "error"), "detail"));
    }
  }
}

}  // namespace

// Without `asyncfinalize` the CA must answer at once; the order's status is then not looked at.
Json::Value FinalizeOrder(Session& session, const Order& order, const std::string& csr) {
  const bool patient = session.settings().async_finalize;
  HttpResponse response = session.PostDer(order.finalize, "csr", csr);
  if (patient && IsOrderNotReady(response)) {
    AwaitOrder(session, order.url, response, IsReady);
    response = session.PostDer(order.finalize, "csr", csr);
  }
  RequireFinalized(response);
  Json::Value finalized = ObjectBody(kTag, response);
  if (!patient || !IsProcessing(finalized)) return finalized;
  return AwaitOrder(session, order.url, response, IsIssued);
}

}  // namespace kova
