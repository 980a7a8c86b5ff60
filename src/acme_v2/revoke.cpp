#include <unistd.h>

#include <cerrno>

#include "acme/renewal_record.h"
#include "acme/reply.h"
#include "acme_v2/issue.h"
#include "base/debug.h"
#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr char kRevokedProblem[] = "urn:ietf:params:acme:error:alreadyRevoked";

bool TellsRevoked(const HttpResponse& response) {
  Json::Value body;
  return response.status == 400 && JsonFromText(response.body, body) &&
         IsProblem(body, kRevokedProblem);
}

}  // namespace

std::string RevokeAtCa(Session& session, const std::string& folder, const RevokeOptions& options) {
  DebugStep("revoke certifiaction for %s.", folder.c_str());
  std::string text = ReadTextFile(folder + "/cert.pem");
  const std::string certificate = session.DerText(text, kCertificateBegin, kCertificateEnd);
  DebugStep("=========== certification info ===========");
  DebugStep("%s", certificate.c_str());
  DebugStep("==========================================");
  Json::Value payload(Json::objectValue);
  payload["certificate"] = certificate;
  if (options.reason) payload["reason"] = *options.reason;
  const HttpResponse response = session.PostJws(session.Resource("revokeCert"), payload);
  if (options.believes_problem && TellsRevoked(response)) return text;
  // One that was revoked before is as good as revoked now.
  (void)RequireRevoked(kTag, response);
  return text;
}

void RemoveRenewalRecord(const std::string& folder) {
  const std::string path = RenewalRecordPath(folder);
  if (unlink(path.c_str()) == 0) return;
  const int error = errno;
  DebugStep("Failed to unlink %s [%d]", path.c_str(), error);
  // The certificate will be renewed, though it is revoked.
  if (error != ENOENT) LogError(kTag, "Failed to unlink %s [%d]", path.c_str(), error);
}

void Revoke(Session& session, const std::string& folder) {
  (void)RevokeAtCa(session, folder);
  RemoveRenewalRecord(folder);
}

}  // namespace kova
