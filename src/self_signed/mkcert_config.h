// The configuration files that the openssl tool reads. What fails is logged.
#pragma once

#include <string>

#include "base/status.h"
#include "platform/strings.h"

namespace kova::mkcert {

// What stands in front of this module's log lines. It is interface (people filter the system log by
// it) and older than the present files, hence it names none of them.
inline constexpr char kTag[] = "mkcert.cpp";

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
Status MakeParentDirectory(const std::string& path);

Status WriteCaExtensionFile(const std::string& path);

// `aliases` are host names and IP addresses; empty ones are passed over.
Status WriteServerExtensionFile(const std::string& path, const KOVA_SZ_LIST* aliases);

Status WriteRequestConfig(const std::string& path, const Subject* subject);

}  // namespace kova::mkcert
