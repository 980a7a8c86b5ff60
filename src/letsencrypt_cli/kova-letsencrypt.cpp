// Entry point: one process runs one command and ends.

#include <array>
#include <cstring>

#include "letsencrypt_cli/commands.h"
#include "letsencrypt_cli/options.h"
#include "platform/process.h"
#include "platform/signals.h"

namespace {

struct Command {
  const char* word;
  int (*run)(int argc, char** argv);
};

constexpr std::array<Command, 5> kCommands = {{
    {"new-cert", kova::NewCertCommand},
    {"renew-all", kova::RenewAllCommand},
    {"revoke", kova::RevokeCommand},
    {"add-cronjob", kova::AddCronjobCommand},
    {"renew", kova::RenewCommand},
}};

constexpr char kTag[] = "kova-letsencrypt";

int Run(int argc, char** argv) {
  // The command word takes the place of the program's name for what follows.
  for (const Command& command : kCommands) {
    if (argc > 1 && std::strcmp(argv[1], command.word) == 0) {
      return command.run(argc - 1, argv + 1);
    }
  }
  kova::PrintUsage();
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  kova::platform::PrepareProcess();
  return kova::platform::RunInterruptibly(kTag, [&] { return Run(argc, argv); });
}
