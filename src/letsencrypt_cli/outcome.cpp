#include "base/json.h"
#include "base/output.h"
#include "letsencrypt_cli/commands.h"
#include "lifecycle/failure.h"
#include "platform/signals.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

void Print(const std::string& document) {
  platform::FinishRun();
  (void)WriteResult(kTag, document);
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
