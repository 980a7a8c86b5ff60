// The command line and the usage texts of kova-archive.
#pragma once

#include <string>

#include "archive_cli/command.h"

namespace kova::archive_cli {

inline constexpr char kProgram[] = "kova-archive";

// Parses what follows the command word. Throws UsageError. --json and --help, which every command
// takes, are not among its rules; `help` tells whether the latter was given, in which case nothing
// else is checked.
Arguments ParseArguments(const Command& command, const std::vector<std::string>& words, bool& help);

// The text of `kova-archive --help`, and that of `kova-archive COMMAND --help`.
std::string Usage();
std::string Usage(const Command& command);

}  // namespace kova::archive_cli
