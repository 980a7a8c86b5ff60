// Failures on their way to whoever tells them.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/sl_error.h"

namespace kova {

// {"error":CODE,"file":"TAG","msg":"MESSAGE"} and a line feed.
std::string ErrorToJson(const SLError& error);

// The same without the line feed, which would break a line of the system log.
std::string ErrorToLine(const SLError& error);

// One line of the system log: "WHAT failed. [SUBJECT][CODE][MESSAGE]".
void LogFailure(const char* what, const std::string& subject, const SLError& error);

// Runs `work`. What it throws comes back: an SLError as it is, another standard exception as code
// 202 with its text, anything else as code 202 "Catch unknow exepction.".
[[nodiscard]] std::optional<SLError> Capture(const std::function<void()>& work);

}  // namespace kova
