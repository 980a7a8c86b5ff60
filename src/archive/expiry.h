// When a certificate is due.
#pragma once

#include <cstdint>
#include <string>

namespace kova::cert_archive {

// True when the PEM certificate in that file is no longer valid `days` from now. False, with a
// message, also for a file that cannot be read: what cannot be read is not renewed.
[[nodiscard]] bool ExpiresWithin(const std::string& path, std::int32_t days);

}  // namespace kova::cert_archive
