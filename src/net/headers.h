// Look-ups in the raw header text of a reply. A missing header or link is an empty string.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "net/client_network.h"

namespace kova {

// The first value of header `name`. Case-sensitive, and exactly one blank after the colon: both
// are deliberate.
std::string GetHeader(const HttpResponse& response, const std::string& name);

// The same, searching from `position` on, which moves behind the value found; npos when there is
// nothing more to find.
std::string GetHeader(const HttpResponse& response, const std::string& name, size_t& position);

// The same for a name in any spelling of its letters, and with any blanks around the value.
std::string AnyCaseHeader(const HttpResponse& response, const std::string& name);

// The target of the first Link header of that relation, in the strict form <URL>;rel="RELATION".
std::string GetLinkUrl(const HttpResponse& response, const std::string& relation);

// The targets of all links of that relation, however they are spaced and spelled (RFC 8288).
std::vector<std::string> LinkUrls(const HttpResponse& response, const std::string& relation);

// What Retry-After says, in seconds or as an HTTP date, held between 1 and 10 s; none when there is
// none or it is neither.
std::optional<std::chrono::seconds> RetryAfter(const HttpResponse& response);

// The same between other bounds, however the header's name is spelled and its value spaced.
std::optional<std::chrono::seconds> RetryAfterWithin(const HttpResponse& response,
                                                     std::chrono::seconds shortest,
                                                     std::chrono::seconds longest);

}  // namespace kova
