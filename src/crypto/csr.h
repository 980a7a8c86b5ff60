// Certificate requests.
#pragma once

#include <string>
#include <vector>

#include "crypto/certificate_key.h"

namespace kova {

// The key's PEM and a PKCS#10 request for `domains`, which is not empty; the first is the common
// name, all are alternative names. What could not be made is left empty; so are both when a name is
// empty or holds a comma, a blank or a control character, or the first has more than 64 characters.
// Throws only platform::Interruption. The caller cleanses the key text.
void GenerateCsr(const std::vector<std::string>& domains, std::string& request_pem,
                 std::string& private_key_pem, CertificateKey& key);

// The same with a fresh key.
void GenerateCsr(const std::vector<std::string>& domains, std::string& request_pem,
                 std::string& private_key_pem, KeyType type = KeyType::kRsa2048);

}  // namespace kova
