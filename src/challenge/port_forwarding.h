// Ports 80 and 443 of the home router, forwarded to this host while a CA validates.
#pragma once

namespace kova {

// True when the router confirmed port 80. Every failure is logged at debug level 1.
bool OpenRouterPorts();

// Removes the forwarding; failures are silent.
void CloseRouterPorts();

}  // namespace kova
