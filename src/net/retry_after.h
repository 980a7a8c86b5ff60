// The Retry-After header of a reply.
#pragma once

#include <chrono>
#include <optional>

#include "net/client_network.h"

namespace kova {

// Seconds or an HTTP date, held between 1 and 10 s; none when there is none or it is neither.
std::optional<std::chrono::seconds> RetryAfter(const HttpResponse& response);

}  // namespace kova
