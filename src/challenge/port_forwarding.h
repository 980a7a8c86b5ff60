// Ports 80 and 443 of the home router, forwarded to this host while a CA validates.
#pragma once

namespace kova {

// True when the router confirmed port 80. Every failure is logged at debug level 1.
bool OpenRouterPorts();

// Removes the forwarding; failures are silent.
void CloseRouterPorts();

// Closes the ports at the end of a scope.
class RouterPortsCloser {
 public:
  RouterPortsCloser() = default;
  ~RouterPortsCloser() { CloseRouterPorts(); }
  RouterPortsCloser(const RouterPortsCloser&) = delete;
  RouterPortsCloser& operator=(const RouterPortsCloser&) = delete;
};

}  // namespace kova
