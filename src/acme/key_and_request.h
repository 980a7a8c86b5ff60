// The first step of an issuance, for both protocol versions.
#pragma once

#include <string>
#include <vector>

namespace kova {

// A fresh certificate key and the request for `domains` (crypto/csr.h). Failure is SLError 202
// "Failed to genrate CSR." with `tag` as the file. The caller cleanses the key text.
void MakeKeyAndRequest(const char* tag, const std::vector<std::string>& domains,
                       std::string& request_pem, std::string& private_key_pem);

}  // namespace kova
