// The serial number of the next certificate that this host signs with its own CA.
#pragma once

#include <cstdint>
#include <string>

#include "base/status.h"

namespace kova::mkcert {

inline constexpr char kSerialFile[] = "/usr/kova/etc/ssl/.mkcert.serial";
inline constexpr char kMacAddressFile[] = "/proc/sys/kernel/kova_mac_address1";

// The first serial number: the time and what follows the first eight characters of the MAC text,
// so that hosts which start at the same moment differ. Always an even number of characters.
[[nodiscard]] std::string FirstSerial(std::int64_t now, const std::string& mac);

// Writes the first serial number. The tool advances it from then on, so call this only as long as
// there is none. A failure is logged.
Status CreateSerialFile();

// True when the file is there and has content. A tool that was killed while it advanced the number
// leaves the file empty, and would refuse it for ever.
[[nodiscard]] bool HasSerialFile();

// True when the file holds hexadecimal digits, at least one, and nothing else but a line end.
[[nodiscard]] bool HoldsSerial();

}  // namespace kova::mkcert
