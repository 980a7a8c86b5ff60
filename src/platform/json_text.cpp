#include <json/reader.h>
#include <json/value.h>

#include <cerrno>
#include <exception>
#include <string>

#include "platform/files.h"

namespace kova::platform {

bool ParseJson(const std::string& text, Json::Value& value) {
  value = Json::Value();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  // The classic reader: its leniency decides which files and replies count as JSON.
  try {
    Json::Reader reader;
    // By its two ends: given the text itself the reader would keep a copy, also of a private key.
    const char* begin = text.data();
    if (reader.parse(begin, begin + text.size(), value, /*collectComments=*/false)) return true;
  } catch (const std::exception&) {
    // Nested beyond the reader's limit.
  }
#pragma GCC diagnostic pop
  value = Json::Value();
  return false;
}

bool ReadJsonObject(const std::string& path, Json::Value& object) {
  object = Json::Value();
  std::string text;
  if (!ReadWholeFile(path, text)) return false;
  Json::Value parsed;
  const bool usable = ParseJson(text, parsed) && parsed.isObject();
  errno = 0;  // after the parser, which may leave a number's ERANGE
  if (!usable) return false;
  object = parsed;
  return true;
}

}  // namespace kova::platform
