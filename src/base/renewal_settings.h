// The settings with what only renewing asks for besides. docs/formats.md lists the keys.
#pragma once

#include <optional>
#include <string>

#include "base/settings.h"

namespace kova {

struct RenewalSettings : Settings {
  // Reads the file anew.
  static RenewalSettings Read();

  bool renew_any_issuer = false;           // renewanyissuer
  bool renew_lifetime = false;             // renewlifetime
  bool renewal_info = false;               // renewalinfo
  bool renew_failures = false;             // renewfailures
  std::optional<std::string> cron_period;  // cronperiod: "daily", "weekly" or "monthly"
};

}  // namespace kova
