#include "base/settings.h"

#include "base/debug.h"
#include "base/json.h"
#include "platform/json_text.h"

namespace kova {

Settings Settings::Read() {
  Settings settings;
  Json::Value document;
  if (platform::ReadJsonObject(kSettingsPath, document)) settings.document_ = document;
  return settings;
}

std::optional<int> Settings::Integer(const char* key) const {
  if (!document_ || !Member(*document_, key).isInt()) return std::nullopt;
  return Member(*document_, key).asInt();
}

std::optional<std::string> Settings::Text(const char* key) const {
  if (!document_ || !Member(*document_, key).isString()) return std::nullopt;
  return Member(*document_, key).asString();
}

bool Settings::IsOn(const char* key) const {
  if (!document_) return false;
  const Json::Value& value = Member(*document_, key);
  return value.isBool() && value.asBool();
}

void ApplyDebugSettings() {
  const std::optional<int> debuglog = Settings::Read().Integer("debuglog");
  if (!debuglog) return;
  SetDebugToSyslog(*debuglog);
  if (*debuglog != 0) SetDebugLevel(2);
}

std::string DefaultDirectory() {
  return Settings::Read().Text("server").value_or(kProductionDirectory);
}

}  // namespace kova
