// The five commands, and what they report: one JSON document on standard output. A document that
// cannot be written there goes to the system log, so that what was done or failed is not lost.
#pragma once

#include <string>

#include "base/sl_error.h"

namespace kova {

// Each takes the arguments from its command word on and returns the exit status.
int NewCertCommand(int argc, char** argv);
int RenewAllCommand(int argc, char** argv);
int RevokeCommand(int argc, char** argv);
int RenewCommand(int argc, char** argv);
int AddCronjobCommand(int argc, char** argv);

// The failure document, one line.
void PrintFailure(const SLError& error);

// Styled {"error": 0, NAME: VALUE}.
void PrintSuccess(const char* name, const std::string& value);

}  // namespace kova
