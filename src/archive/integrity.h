// Whether a certificate of the archive can be used, and the repair of one whose folder is
// incomplete.
#pragma once

#include <string>

namespace kova::cert_archive {

inline constexpr char kBrokenMarker[] = "cert_info";         // {"is_broken": true}
inline constexpr char kDefaultMarker[] = "is_default_cert";  // empty
inline constexpr char kBrokenNotification[] = "certificate_broken";

enum class Integrity {
  kUnusable,
  kUsable,
  kRecovered,  // usable: its folder was refilled with a self-signed set
};

// The certificate must be in the index and its folder must hold the required files. A folder that
// does not is filled with a default certificate set, marked broken and reported, so that the
// services that depend on it keep a usable, if untrusted, certificate. The index is not changed.
[[nodiscard]] Integrity TestIntegrity(const std::string& id);

[[nodiscard]] inline bool IsUsable(const std::string& id) {
  return TestIntegrity(id) != Integrity::kUnusable;
}

}  // namespace kova::cert_archive
