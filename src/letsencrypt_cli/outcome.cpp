#include "letsencrypt_cli/outcome.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/json.h"
#include "base/log.h"
#include "lifecycle/failure.h"
#include "platform/signals.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

// Flushed at once: what is only found unwritable when the process ends is told to nobody.
void Print(const std::string& document) {
  platform::FinishRun();
  errno = 0;
  const bool written = std::fputs(document.c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  if (written) return;
  const int error = errno;
  LogError(kTag, "Failed to write to standard output. [%s]: [%s]", std::strerror(error),
           OnOneLine(document.substr(0, document.find_last_not_of('\n') + 1)).c_str());
  std::clearerr(stdout);
}

}  // namespace

void PrintFailure(const SLError& error) { Print(ErrorToJson(error)); }

void PrintSuccess(const char* name, const std::string& value) {
  Json::Value document(Json::objectValue);
  document["error"] = 0;
  document[name] = value;
  Print(JsonStyledText(document));
}

}  // namespace kova
