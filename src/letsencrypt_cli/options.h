// Command-line options and the usage text.
#pragma once

#include <string>

namespace kova {

struct CommandOptions {
  std::string certificate_id;     // -c
  std::string server;             // -s
  std::string domains;            // -d, separated by ";"; given more than once, the last
  std::string email;              // -m
  std::string version = "2";      // -p
  bool domains_replaced = false;  // -d was given more than once
};

// Parses the options named in `accepted` (getopt form) over the arguments after the command word,
// argv[0]. "-v" sets the debug level at once. False for an unknown option, a missing argument and
// "-h": the caller then prints the usage text and ends with status 1.
[[nodiscard]] bool ParseOptions(int argc, char** argv, const char* accepted,
                                CommandOptions& options);

// To standard output. "add-cronjob" and "renew" are left out on purpose.
void PrintUsage();

}  // namespace kova
