// The configuration files that the openssl tool reads. Every call returns 0, or -1 after a message.
#pragma once

#include <string>

#include "platform/strings.h"

namespace kova::mkcert {

inline constexpr char kCaRequestConfig[] = "/usr/kova/etc/ssl/cfg.d/ca.cfg";
inline constexpr char kCaExtensionFile[] = "/usr/kova/etc/ssl/cfg.d/ca.crt.cfg";
inline constexpr char kServerRequestConfig[] = "/usr/kova/etc/ssl/cfg.d/server.cfg";
inline constexpr char kServerExtensionFile[] = "/usr/kova/etc/ssl/cfg.d/server.crt.cfg";

// Whom a certificate is for. An empty field is left out of the request.
struct Subject {
  std::string country;
  std::string state;
  std::string locality;
  std::string organization;
  std::string organizational_unit;
  std::string common_name;
  std::string email;
};

// Creates the folder that `path` lies in, parents included.
[[nodiscard]] int MakeParentDirectory(const std::string& path);

[[nodiscard]] int WriteCaExtensionFile(const std::string& path);

// `aliases` are host names and IP addresses; empty ones are passed over.
[[nodiscard]] int WriteServerExtensionFile(const std::string& path, const KOVA_SZ_LIST* aliases);

[[nodiscard]] int WriteRequestConfig(const std::string& path, const Subject* subject);

}  // namespace kova::mkcert
