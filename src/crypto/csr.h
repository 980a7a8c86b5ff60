// Certificate keys and requests.
#pragma once

#include <string>
#include <vector>

namespace kova {

// A fresh 2048-bit RSA key (PKCS#1 PEM) and a PKCS#10 request for `domains`, which is not empty;
// the first is the common name, all are alternative names. No exceptions: what could not be made
// is left empty; so are both when a name is empty or holds a comma, a blank or a control character,
// or the first has more than 64 characters. The caller cleanses the key text.
void GenerateCsr(const std::vector<std::string>& domains, std::string& request_pem,
                 std::string& private_key_pem);

}  // namespace kova
