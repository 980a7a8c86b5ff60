// The Retry-After header of a reply.
#pragma once

#include <chrono>

#include "net/client_network.h"

namespace kova {

// Seconds or an HTTP date, held between 1 and 10 s; `absent` when there is none or it is neither.
std::chrono::seconds RetryAfter(const HttpResponse& response, std::chrono::seconds absent);

}  // namespace kova
