#include "acme/issued_folder.h"
#include "acme/key_and_request.h"
#include "acme/reply.h"
#include "acme_v2/client_v2.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/pem.h"
#include "crypto/secret.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr int kRecordVersion = 2;

}  // namespace

std::string AcmeV2Client::NewCertificate(const std::vector<std::string>& domains,
                                         const std::string& certificate_id) {
  std::string request;
  SecretText private_key;
  MakeKeyAndRequest(kTag, domains, request, private_key.text);

  DebugStep("get new-cert");
  ShowStage("", "waiting for the certificate");
  const Json::Value order = FinalizeOrder(PemToBase64Url(request, kRequestBegin, kRequestEnd));
  const std::string chain = DownloadChain(order);

  DebugStep("save to files");
  ShowStage("", "storing the certificate");
  RenewalRecord record;
  record.version = kRecordVersion;
  record.server = directory_url_;
  record.account = account_folder_;
  record.domains = JoinNames(domains, ";");
  return SaveCertificate(kTag, certificate_id, SplitChain(chain), private_key.text, record);
}

std::string AcmeV2Client::DownloadChain(const Json::Value& order) {
  // An order without a certificate makes an empty URL, whose download fails.
  const std::string url =
      HasMember(order, "certificate") ? RequiredText(order, "certificate") : std::string();
  const HttpResponse response = PostAsGet(url);
  if (response.status != 200) {
    LogError(kTag, "Failed to download cert with %s [%ld]", JsonToString(order).c_str(),
             response.status);
    throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (download cert)");
  }
  DebugStep("get issuer-cert");
  DebugDetail("%s", response.body.c_str());
  return response.body;
}

}  // namespace kova
