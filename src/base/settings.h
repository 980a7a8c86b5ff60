// The settings file, a JSON object in which every key is optional. A missing or broken file, a
// missing key and a value of the wrong type all mean the default.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

namespace kova {

inline constexpr char kSettingsPath[] = "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default";
inline constexpr char kProductionDirectory[] = "https://acme-v02.api.letsencrypt.org/directory";

class Settings {
 public:
  // Reads the file anew. `errno` tells why a file could not be read.
  static Settings Read();

  // False when the file is missing or does not hold a JSON object.
  [[nodiscard]] bool IsUsable() const { return document_.has_value(); }

  [[nodiscard]] std::optional<int> Integer(const char* key) const;
  [[nodiscard]] std::optional<std::string> Text(const char* key) const;
  [[nodiscard]] bool IsOn(const char* key) const;  // a boolean that is true

 private:
  std::optional<Json::Value> document_;
};

// `debuglog`: messages to syslog, and the debug level forced to 2 when it is not zero.
void ApplyDebugSettings();

// The directory used when the command line names none.
std::string DefaultDirectory();

}  // namespace kova
