// The replay nonces that a CA has given and that are not used yet.
#pragma once

#include <deque>
#include <string>

#include "net/client_network.h"

namespace kova {

class NoncePool {
 public:
  // Failures carry `tag` as their file.
  explicit NoncePool(const char* tag) : tag_(tag) {}

  // Keeps the reply's nonce, if it carries one, whatever its status.
  void Keep(const HttpResponse& response);

  // The newest one: last in, first out, on purpose. Throws SLError 204
  // "No Nonce.... Not Yet implement" when there is none.
  std::string Take();

  [[nodiscard]] bool IsEmpty() const { return nonces_.empty(); }

 private:
  const char* tag_;
  std::deque<std::string> nonces_;  // newest at the back
};

}  // namespace kova
