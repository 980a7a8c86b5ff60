// The crypto library's pending errors.
#pragma once

#include <string>

namespace kova::cert_archive {

// Logs `message` and what the library has to say, "MESSAGE [ERRORS]", and empties its queue.
void LogCryptoErrors(const std::string& message);

}  // namespace kova::cert_archive
