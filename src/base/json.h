// JSON text forms and type-safe access. jsoncpp throws or aborts when a value has another type than
// assumed; every boundary (files, CA, DDNS service) goes through these.
#pragma once

#include <json/value.h>

#include <string>

namespace kova {

// The classic one-line writer: compact, ended by a line feed.
std::string JsonFastText(const Json::Value& value);

// Compact without a line feed (the platform's Json::Value::toString()).
std::string JsonToString(const Json::Value& value);

// The classic indented writer, ended by a line feed; used for every file and for results.
std::string JsonStyledText(const Json::Value& value);

// Parses a text from elsewhere. False, with a null value, when it is not JSON or holds an absurd
// number of values.
[[nodiscard]] bool JsonFromText(const std::string& text, Json::Value& value);

// The platform's Json::Value::fromFile: true when the file opened and parsed, as any type of value.
// errno says why a file could not be read and is 0 when it is not JSON.
[[nodiscard]] bool JsonFromFile(const std::string& path, Json::Value& value);

// Member access that is safe on every type of value: no member in what is not an object.
[[nodiscard]] bool HasMember(const Json::Value& value, const char* name);
[[nodiscard]] const Json::Value& Member(const Json::Value& value, const char* name);  // or null

// The member when it is a string, else the empty string.
[[nodiscard]] std::string TextMember(const Json::Value& value, const char* name);

}  // namespace kova
