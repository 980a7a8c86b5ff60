#include "base/json.h"

#include <json/value.h>
#include <json/writer.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "platform/files.h"

namespace kova {
namespace {

// Two bytes of text can become a value of more than a hundred. What people and protocols write
// has some dozens of values; millions of them would use up the memory of a small host.
constexpr std::ptrdiff_t kMaximumValues = 100000;

// Counts generously: each value but the first of a list or object follows a comma.
bool HoldsTooManyValues(const std::string& text) {
  return std::count_if(text.begin(), text.end(), [](char character) {
           return character == ',' || character == '[' || character == '{';
         }) > kMaximumValues;
}

}  // namespace

// The classic writers are kept for their exact bytes: file formats and signed texts depend on them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
std::string JsonFastText(const Json::Value& value) { return Json::FastWriter().write(value); }

std::string JsonStyledText(const Json::Value& value) { return Json::StyledWriter().write(value); }
#pragma GCC diagnostic pop

std::string JsonToString(const Json::Value& value) {
  std::string text = JsonFastText(value);
  text.pop_back();  // the line feed
  return text;
}

bool JsonFromText(const std::string& text, Json::Value& value) {
  value = Json::Value();
  return !HoldsTooManyValues(text) && platform::ParseJson(text, value);
}

bool JsonFromFile(const std::string& path, Json::Value& value) {
  value = Json::Value();
  std::string text;
  if (!platform::ReadWholeFile(path, text)) return false;
  const bool parsed = platform::ParseJson(text, value);
  errno = 0;  // after the parser, which may leave a number's ERANGE
  return parsed;
}

bool HasMember(const Json::Value& value, const char* name) {
  return value.isObject() && value.isMember(name);
}

const Json::Value& Member(const Json::Value& value, const char* name) {
  return HasMember(value, name) ? value[name] : Json::Value::nullSingleton();
}

std::string TextMember(const Json::Value& value, const char* name) {
  const Json::Value& member = Member(value, name);
  return member.isString() ? member.asString() : std::string();
}

}  // namespace kova
