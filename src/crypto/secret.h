// Private keys do not stay in memory longer than they are needed.
#pragma once

#include <json/value.h>

#include <string>

namespace kova {

// Overwrites and empties the text.
void Cleanse(std::string& secret);

// Overwrites every text in the value and makes it null.
void Cleanse(Json::Value& secret);

// A text that is cleansed at the end of its life.
struct SecretText {
  SecretText() = default;
  SecretText(const SecretText&) = delete;
  SecretText& operator=(const SecretText&) = delete;
  ~SecretText() { Cleanse(text); }

  std::string text;
};

// The same for the texts of a value.
struct SecretJson {
  SecretJson() = default;
  SecretJson(const SecretJson&) = delete;
  SecretJson& operator=(const SecretJson&) = delete;
  ~SecretJson() { Cleanse(value); }

  Json::Value value;
};

}  // namespace kova
