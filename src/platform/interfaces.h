// The host's network interfaces.
#pragma once

#include <string>

namespace kova::platform {

// The hardware address, in hexadecimal digits, of the first interface in name order that has one
// and is not the loopback; empty when there is none.
std::string FirstMacAddress();

}  // namespace kova::platform
