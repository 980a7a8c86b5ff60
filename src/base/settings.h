// The settings file, a JSON object in which every key is optional. A missing or broken file, a
// missing key and a value of the wrong type all mean the default. docs/formats.md lists the keys.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kova {

inline constexpr char kSettingsPath[] = "/usr/kova/etc.defaults/letsencrypt/letsencrypt.default";
inline constexpr char kProductionDirectory[] = "https://acme-v02.api.letsencrypt.org/directory";
inline constexpr int kDefaultLeadDays = 30;

// All of the file's values at one moment. Whoever needs one is given it; a new key is a member here
// and a line in Read.
struct Settings {
  // Reads the file anew.
  static Settings Read();

  bool usable = false;  // the file holds a JSON object
  int read_error = 0;   // errno of a file that could not be read, else 0

  std::optional<int> debug_log;                 // debuglog
  std::string server = kProductionDirectory;    // server: directory when no other is named
  std::optional<int> renew_before_expire_days;  // days; kDefaultLeadDays when the key is absent
  bool skip_dns01 = false;                      // skipdns01
  std::optional<std::string> kova_ddns;         // kovaddns: update URL of the vendor's service
  bool async_finalize = false;                  // asyncfinalize
  bool quick_validation = false;                // quickvalidation
  int order_attempts = 0;                       // orderattempts; 0: no bound and no wait
  bool nonce_refill = false;                    // noncerefill
  bool keep_connections = false;                // keepconnections
  int transfer_timeout = 0;                     // transfertimeout, seconds; 0: no limit
  std::optional<std::string> key_type;          // keytype, as written; "" when it is no text
  bool strict_encoding = false;                 // strictencoding
  bool check_issued = false;                    // checkissued
  bool staged_update = false;                   // stagedupdate
  std::optional<std::string> profile;           // profile: of the CA's directory
  std::optional<std::string> preferred_chain;   // preferredchain: common name of its top issuer
  std::vector<std::string> ignored;             // keys whose values are of a wrong type
};

// One message for each of the ignored keys. Those that have always been there (debuglog, server,
// renew_before_expire_days, skipdns01, kovaddns) are ignored in silence; keytype has a message of
// its own where it is used.
void TellIgnoredKeys(const Settings& settings);

// `debuglog`: messages to syslog, and the debug level forced to 2 when it is not zero.
void ApplyDebugSettings(const Settings& settings);

}  // namespace kova
