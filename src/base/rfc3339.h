// Moments as RFC 3339 writes them.
#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace kova {

using Moment = std::chrono::sys_time<std::chrono::milliseconds>;

// The moment of a text such as "2026-11-21T10:00:00Z" or "2026-11-21t11:30:00.25+01:30"; what is
// finer than a millisecond is cut off. None for any other text, and for a day that is not in the
// calendar or a time that is not of the day; a leap second (":60") is the second after it.
std::optional<Moment> MomentOfText(std::string_view text);

}  // namespace kova
