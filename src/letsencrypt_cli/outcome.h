// What a command reports: one JSON document on standard output. A document that cannot be written
// there goes to the system log, so that what was done or failed is not lost.
#pragma once

#include <string>

#include "base/sl_error.h"

namespace kova {

// The failure document, one line.
void PrintFailure(const SLError& error);

// Styled {"error": 0, NAME: VALUE}.
void PrintSuccess(const char* name, const std::string& value);

}  // namespace kova
