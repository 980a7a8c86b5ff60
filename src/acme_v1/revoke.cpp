#include <unistd.h>

#include "acme/reply.h"
#include "acme_v1/client_v1.h"
#include "base/debug.h"
#include "base/files.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v1";

}  // namespace

void AcmeV1Client::Revoke(const std::string& certificate_folder) {
  DebugStep("revoke certifiaction.");
  Json::Value payload(Json::objectValue);
  payload["resource"] = "revoke-cert";
  payload["certificate"] = UnpaddedBase64Url(ReadTextFile(certificate_folder + "/cert.pem"),
                                             kCertificateBegin, kCertificateEnd);
  if (!RequireRevoked(kTag, PostJws(Resource("revoke-cert"), payload))) return;
  // No file is named, so nothing goes: the renewal record stays with the certificate.
  unlink((certificate_folder + "/").c_str());
}

}  // namespace kova
