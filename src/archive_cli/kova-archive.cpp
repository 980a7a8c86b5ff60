// kova-archive: the certificate archive on the command line. A thin front over the archive's own
// code: it adds no rules of its own.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "archive_cli/arguments.h"
#include "archive_cli/command.h"
#include "archive_cli/kept_stderr.h"
#include "archive_cli/text.h"
#include "base/json.h"
#include "base/output.h"
#include "base/progress.h"
#include "platform/process.h"
#include "platform/signals.h"
#include "platform/version.h"

namespace kova::archive_cli {
namespace {

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

void Print(std::FILE* file, const std::string& text) {
  (void)std::fwrite(text.data(), 1, text.size(), file);
}

int Refuse(const std::string& message, const std::string& usage) {
  Print(stderr, std::string(kProgram) + ": " + Printable(message) + "\n" + usage);
  return kUsage;
}

const Command* FindCommand(const std::string& word) {
  for (const Command* command : Commands()) {
    if (word == command->word) return command;
  }
  return nullptr;
}

// Runs it; what its tools and scripts wrote to standard error comes back in `errors`.
Reply RunQuietly(const Command& command, const Arguments& arguments, std::string& errors) {
  Reply reply;
  KeptStderr kept;
  try {
    const ProgressLine progress(kept.RealDescriptor());
    reply = command.run(arguments);
  } catch (const Failure& failure) {
    reply.failure = failure.message;
  }
  errors = kept.Release();
  return reply;
}

std::string Document(Reply reply) {
  const bool failed = !reply.failure.empty();
  reply.document["error"] = failed ? kFailed : kDone;
  if (failed) reply.document["msg"] = reply.failure;
  return JsonStyledText(reply.document);
}

int ReportFailure(const Command& command, const std::string& failure) {
  Print(stderr, std::string(kProgram) + ": " + command.word + ": " + Printable(failure) + "\n");
  return kFailed;
}

// `unwritten` is the error of a result that could not be written, else 0.
int ReportSuccess(const Command& command, const std::vector<std::string>& warnings,
                  const std::string& errors, int unwritten) {
  Print(stderr, errors);
  for (const std::string& warning : warnings) {
    Print(stderr, std::string(kProgram) + ": " + command.word + ": " + Printable(warning) + "\n");
  }
  if (unwritten == 0) return kDone;
  Print(stderr,
        std::string(kProgram) + ": cannot write the result: " + std::strerror(unwritten) + "\n");
  return kFailed;
}

int Report(const Command& command, const Arguments& arguments, Reply reply,
           const std::string& errors) {
  platform::FinishRun();
  const bool failed = !reply.failure.empty();
  if (failed && !errors.empty()) reply.failure += " (" + LastLine(errors) + ")";
  const bool written = WriteResult(kProgram, arguments.json ? Document(reply) : reply.text);
  const int unwritten = written ? 0 : errno;
  return failed ? ReportFailure(command, reply.failure)
                : ReportSuccess(command, reply.warnings, errors, unwritten);
}

int RunCommand(const Command& command, const std::vector<std::string>& words) try {
  bool help = false;
  const Arguments arguments = ParseArguments(command, words, help);
  if (help) {
    Print(stdout, Usage(command));
    return kDone;
  }
  std::string errors;
  const Reply reply = RunQuietly(command, arguments, errors);
  return Report(command, arguments, reply, errors);
} catch (const UsageError& error) {
  return Refuse(std::string(command.word) + ": " + error.message, Usage(command));
}

int Run(const std::vector<std::string>& words) {
  if (words.empty()) return Refuse("missing COMMAND", Usage());
  if (words[0] == "--help" || words[0] == "-h") {
    Print(stdout, Usage());
    return kDone;
  }
  if (words[0] == "--version") {
    Print(stdout, std::string(kProgram) + " " KOVA_PROGRAM_VERSION "\n");
    return kDone;
  }
  const Command* command = FindCommand(words[0]);
  if (command == nullptr) return Refuse("unknown command " + words[0], Usage());
  return RunCommand(*command, {words.begin() + 1, words.end()});
}

}  // namespace

}  // namespace kova::archive_cli

int main(int argc, char** argv) try {
  kova::platform::PrepareProcess();
  return kova::platform::RunInterruptibly("kova-archive", [&] {
    return kova::archive_cli::Run({argv + (argc > 0 ? 1 : 0), argv + argc});
  });
} catch (const std::bad_alloc&) {
  // Without any memory of our own: there may be none.
  constexpr std::string_view kMessage = "kova-archive: out of memory\n";
  (void)!write(STDERR_FILENO, kMessage.data(), kMessage.size());
  return 1;
}
