// The one call of the JSON parser. Everything that reads JSON, from a file or from a server, comes
// through here, so that no text can end the process.
#pragma once

#include <json/value.h>

#include <string>

namespace kova::platform {

// Parses `text` without collecting comments. False when it is not JSON, also when it is nested more
// deeply than the parser follows; `value` is then null.
[[nodiscard]] bool ParseJson(const std::string& text, Json::Value& value);

// The JSON object in the file at `path`. False when the file cannot be read (errno says why), or
// does not hold a JSON object (errno is then 0).
[[nodiscard]] bool ReadJsonObject(const std::string& path, Json::Value& object);

}  // namespace kova::platform
