// The head of an issuance, for both protocol versions.
#pragma once

#include <string>
#include <vector>

#include "crypto/csr.h"
#include "crypto/secret.h"

namespace kova {

// The certificate's key and the request for the names (crypto/csr.h), announced and, at debug level
// 2, shown. What follows is the CA's answer. Failure is SLError 202 "Failed to genrate CSR." with
// `tag` as the file.
struct KeyAndRequest {
  KeyAndRequest(const char* tag, const std::vector<std::string>& names, CertificateKey& key);

  std::string request_pem;
  SecretText private_key;  // PEM
};

}  // namespace kova
