#include "acme_v2/issue.h"

#include "acme/issued_folder.h"
#include "acme/key_and_request.h"
#include "acme/reply.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kRecordVersion = 2;

std::string DownloadChain(Session& session, const Json::Value& order) {
  // An order without a certificate makes an empty URL, whose download fails.
  const std::string url =
      HasMember(order, "certificate") ? RequiredText(kTag, order, "certificate") : std::string();
  const HttpResponse response = session.PostAsGet(url);
  if (response.status != 200) {
    LogError(kTag, "Failed to download cert with %s [%ld]", JsonToString(order).c_str(),
             response.status);
    throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (download cert)");
  }
  DebugStep("get issuer-cert");
  DebugDetail("%s", response.body.c_str());
  return response.body;
}

}  // namespace

std::string Issue(Session& session, const Order& order, const IssueOptions& options) {
  const KeyAndRequest made(kTag, order.names, options.key_type);
  const Json::Value finalized =
      FinalizeOrder(session, order, PemToBase64Url(made.request_pem, kRequestBegin, kRequestEnd));
  const std::string chain = DownloadChain(session, finalized);

  DebugStep("save to files");
  ShowStage("", "storing the certificate");
  RenewalRecord record;
  record.version = kRecordVersion;
  record.server = session.DirectoryUrl();
  record.account = session.AccountFolder();
  record.domains = JoinNames(order.names, ";");
  if (options.keeps_key_type) record.key_type = NameOf(options.key_type);
  return SaveCertificate(kTag, options.certificate_id, SplitChain(chain), made.private_key.text,
                         record);
}

}  // namespace kova
