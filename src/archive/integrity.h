// Whether a certificate of the archive can be used, the repair of one whose folder is incomplete,
// and when one is due. What fails is logged.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "base/status.h"
#include "crypto/certificate.h"

namespace kova::cert_archive {

inline constexpr char kBrokenMarker[] = "cert_info";         // {"is_broken": true}
inline constexpr char kDefaultMarker[] = "is_default_cert";  // empty
inline constexpr char kBrokenNotification[] = "certificate_broken";

enum class Integrity {
  kUnusable,
  kUsable,
  kRecovered,  // usable: its folder was refilled with a self-signed set
};

struct Verdict {
  Integrity integrity;
  Status reason;            // why it is unusable, or what was missing before it was recovered
  bool unreported = false;  // this recovery is still to be told, see TestWithoutReport
};

// The certificate must be in the index and its folder must hold the required files. A folder that
// does not is filled with a default certificate set, marked broken and reported, so that the
// services that depend on it keep a usable, if untrusted, certificate. The index is not changed. A
// noted move of its files (archive/noted_move.h) is finished first.
[[nodiscard]] Verdict TestIntegrity(const std::string& id);

// The same for an index that was read before: for whoever tests many certificates.
[[nodiscard]] Verdict TestIntegrity(const Json::Value& info, const std::string& id);

// The same for callers that hold locks: nobody is notified yet, since that may run a hook. Hand the
// verdict to ReportRecovery once the locks are released.
[[nodiscard]] Verdict TestWithoutReport(const std::string& id);
void ReportRecovery(const Verdict& verdict);

// Done when the certificate is usable, by way of a recovery if need be.
Status EnsureUsable(const std::string& id);

// The certificate's "services" array out of the index, after EnsureUsable.
Status EnsureServices(const std::string& id, Json::Value& services);

// True when the PEM certificate in that file is no longer valid `days` from now. False, with a
// message, also for a file that cannot be read: what cannot be read is not renewed.
[[nodiscard]] bool ExpiresWithin(const std::string& path, std::int32_t days);

// The same for one that was read before, out of that file.
[[nodiscard]] bool ExpiresWithin(const Certificate& certificate, const std::string& path,
                                 std::int32_t days);

}  // namespace kova::cert_archive
