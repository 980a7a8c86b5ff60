#include "acme/issued_folder.h"
#include "acme/key_and_request.h"
#include "acme/reply.h"
#include "acme_v1/client_v1.h"
#include "base/debug.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/pem.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v1";
constexpr int kRecordVersion = 1;

}  // namespace

std::string AcmeV1Client::NewCert(const std::vector<std::string>& domains,
                                  const std::string& certificate_id, KeyType key_type) {
  CertificateKey key(key_type);
  const KeyAndRequest made(kTag, domains, key);
  const HttpResponse issued = RequestCertificate(made.request_pem);
  CertificatePems pems;
  pems.cert = DerToPem(issued.body);
  if (pems.cert.empty()) throw Error(code::kProtocol, kTag, "failed to convert x509 to pem");
  DebugStep("get issuer-cert");
  pems.chain = FetchIssuer(issued);  // may be empty, on purpose
  pems.fullchain = pems.cert + pems.chain;

  if (settings_.check_issued) {
    RequireFitting(kTag, pems.fullchain, made.private_key.text, domains);
  }
  DebugStep("save to files");
  ShowStage("", "storing the certificate");
  RenewalRecord record;
  record.version = kRecordVersion;
  record.server = directory_url_;
  record.account = account_folder_;
  record.domains = JoinNames(domains, "; ");
  return SaveCertificate(kTag, certificate_id, pems, made.private_key.text, record);
}

HttpResponse AcmeV1Client::RequestCertificate(const std::string& request_pem) {
  Json::Value payload(Json::objectValue);
  payload["resource"] = "new-cert";
  payload["csr"] = UnpaddedBase64Url(request_pem, kRequestBegin, kRequestEnd);
  HttpResponse response = PostJws(Resource("new-cert"), payload);
  if (response.status == 429) {
    throw SLError::FromServerText(code::kOrderRateLimit, kTag, ProblemDetail(response));
  }
  if (response.status != 201) {
    throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (new-cert)");
  }
  return response;
}

std::string AcmeV1Client::FetchIssuer(const HttpResponse& issued) {
  const HttpResponse response = Fetch(GetLinkUrl(issued, "up"));
  if (response.status != 200) {
    throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (issuer-cert)");
  }
  return DerToPem(response.body);
}

}  // namespace kova
