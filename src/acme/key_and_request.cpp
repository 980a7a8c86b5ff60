#include "acme/key_and_request.h"

#include "base/debug.h"
#include "base/progress.h"
#include "base/sl_error.h"

namespace kova {

KeyAndRequest::KeyAndRequest(const char* tag, const std::vector<std::string>& names,
                             CertificateKey& key) {
  DebugStep("==> start new-cert.");
  DebugStep("generate csr & private key");
  ShowStage("", "generating the key and the request");
  GenerateCsr(names, request_pem, private_key.text, key);
  if (request_pem.empty() || private_key.text.empty()) {
    throw Error(code::kLocal, tag, "Failed to genrate CSR.");
  }
  // The key in the log at this level is deliberate.
  DebugDetail("======= Private Key ========");
  DebugDetail("%s", private_key.text.c_str());
  DebugDetail("=========== CSR ============");
  DebugDetail("%s", request_pem.c_str());
  DebugStep("get new-cert");
  ShowStage("", "waiting for the certificate");
}

}  // namespace kova
