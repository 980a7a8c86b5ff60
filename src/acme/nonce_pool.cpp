#include "acme/nonce_pool.h"

#include <utility>

#include "base/sl_error.h"
#include "net/headers.h"

namespace kova {

void NoncePool::Keep(const HttpResponse& response) {
  std::string nonce = GetHeader(response, "Replay-Nonce");
  if (!nonce.empty()) nonces_.push_back(std::move(nonce));
}

std::string NoncePool::Take() {
  if (nonces_.empty()) throw Error(code::kNoNonce, tag_, "No Nonce.... Not Yet implement");
  std::string nonce = std::move(nonces_.back());
  nonces_.pop_back();
  return nonce;
}

}  // namespace kova
