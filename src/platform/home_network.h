// What can be checked of addresses that somebody on the home network names.
#pragma once

#include <string>

namespace kova::platform {

// True for "http://ADDRESS/..." and "http://ADDRESS:PORT/..." with an IPv4 address of a network
// that a search by multicast reaches, so that whoever answered the search could ask there as well.
// Never a name, the internet, or the loopback with what listens there for this host alone.
bool IsNearbyUrl(const std::string& url);

// True for the text of an IPv4 address under which the internet can find somebody.
bool IsPublicAddress(const std::string& text);

}  // namespace kova::platform
