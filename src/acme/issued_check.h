// Whether what a CA issued is what it was asked for.
#pragma once

#include <string>
#include <vector>

namespace kova {

// The chain (PEM, leaf first) must hold certificates and nothing else; the first has the key's
// public half and every name, and is valid now; each of the others issued the one before it.
// Otherwise throws SLError 200 "new-cert: issued certificate does not fit. (WHY)" with `tag` as the
// file, after one line in the system log.
void RequireFitting(const char* tag, const std::string& chain_pem,
                    const std::string& private_key_pem, const std::vector<std::string>& names);

}  // namespace kova
