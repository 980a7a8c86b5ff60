// What a command reports: one JSON document on standard output.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "base/sl_error.h"

namespace kova {

// {"error":CODE,"file":"TAG","msg":"MESSAGE"} and a line feed.
std::string ErrorToJson(const SLError& error);

// To standard output.
void PrintFailure(const SLError& error);

// Styled {"error": 0, NAME: VALUE} to standard output.
void PrintSuccess(const char* name, const std::string& value);

// Runs `work`. What it throws comes back: an SLError as it is, another standard exception as code
// 202 with its text, anything else as code 202 "Catch unknow exepction.".
[[nodiscard]] std::optional<SLError> Capture(const std::function<void()>& work);

}  // namespace kova
