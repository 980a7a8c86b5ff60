#include <unistd.h>

#include <cerrno>

#include "acme/reply.h"
#include "acme_v2/client_v2.h"
#include "base/debug.h"
#include "base/files.h"
#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";

// A folder without the record is no longer renewed. Its certificate stays.
void RemoveRenewalRecord(const std::string& path) {
  if (unlink(path.c_str()) != 0) DebugStep("Failed to unlink %s [%d]", path.c_str(), errno);
}

}  // namespace

void AcmeV2Client::RevokeCertificate(const std::string& folder) {
  DebugStep("revoke certifiaction for %s.", folder.c_str());
  const std::string certificate =
      PemToBase64Url(ReadTextFile(folder + "/cert.pem"), kCertificateBegin, kCertificateEnd);
  DebugStep("=========== certification info ===========");
  DebugStep("%s", certificate.c_str());
  DebugStep("==========================================");

  const HttpResponse response = PostDer(Resource("revokeCert"), "certificate", certificate);
  if (response.status == 409) {
    DebugStep("Has already revoked");
  } else if (response.status != 200) {
    throw SLError::FromServerText(
        code::kProtocol, kTag,
        "Revoke failed - " + std::to_string(response.status) + "  " + ProblemDetail(response));
  }
  RemoveRenewalRecord(folder + "/renew.json");
}

}  // namespace kova
