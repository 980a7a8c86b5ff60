#include "acme/key_and_request.h"

#include "base/debug.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "crypto/csr.h"

namespace kova {

void MakeKeyAndRequest(const char* tag, const std::vector<std::string>& domains,
                       std::string& request_pem, std::string& private_key_pem) {
  DebugStep("==> start new-cert.");
  DebugStep("generate csr & private key");
  ShowStage("", "generating the key and the request");
  GenerateCsr(domains, request_pem, private_key_pem);
  if (request_pem.empty() || private_key_pem.empty()) {
    throw Error(code::kLocal, tag, "Failed to genrate CSR.");
  }
  // The key in the log at this level is deliberate.
  DebugDetail("======= Private Key ========");
  DebugDetail("%s", private_key_pem.c_str());
  DebugDetail("=========== CSR ============");
  DebugDetail("%s", request_pem.c_str());
}

}  // namespace kova
