// Certificate keys and requests.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kova {

enum class KeyType { kRsa2048, kRsa3072, kRsa4096, kEc256, kEc384 };

// A key type as settings, renewal records and command lines name it: "rsa2048", "rsa3072",
// "rsa4096", "ec256", "ec384". None for any other text.
[[nodiscard]] std::optional<KeyType> ParseKeyType(const std::string& name);
[[nodiscard]] const char* NameOf(KeyType type);

// A fresh key (PEM: PKCS#1 for RSA, PKCS#8 for elliptic curves) and a PKCS#10 request for
// `domains`, which is not empty; the first is the common name, all are alternative names. No
// exceptions: what could not be made is left empty; so are both when a name is empty or holds a
// comma, a blank or a control character, or the first has more than 64 characters. The caller
// cleanses the key text.
void GenerateCsr(const std::vector<std::string>& domains, std::string& request_pem,
                 std::string& private_key_pem, KeyType type = KeyType::kRsa2048);

}  // namespace kova
