// The renewal record, renew.json of a certificate's folder (docs/formats.md): how the certificate
// was obtained, and so how it is renewed and revoked. One reader and one writer, for both protocol
// versions and for every command. Nothing here writes to the log: who reads knows what to say.
#pragma once

#include <array>
#include <optional>
#include <string>

namespace kova {

// A certificate's files, in the order in which they are written and moved.
inline constexpr std::array kCertificateFiles = {"cert.pem", "chain.pem", "fullchain.pem",
                                                 "privkey.pem", "renew.json"};

struct RenewalRecord {
  std::string server;   // directory URL
  std::string domains;  // the names as one text, separated by ";"
  std::string account;  // folder of the account store
  int version = 0;      // of the protocol, 1 or 2; any other number is not to be used

  // What was chosen for this certificate and holds for its renewals; none: nothing was.
  std::optional<std::string> key_type{};  // as NameOf has it; "" when it is no text
  std::string profile{};                  // empty: nothing was chosen
  std::string preferred_chain{};          // likewise

  // Which of the latter two is there, but no text; empty: none. Not written.
  std::string no_text{};
};

enum class RecordProblem {
  kNone,
  kNotJson,     // the file cannot be read, or does not hold a JSON object; errno as JsonFromFile's
  kIncomplete,  // one of the four members is missing
};

std::string RenewalRecordPath(const std::string& folder);

// Reads the record of a certificate's folder; `record` is whole only when kNone comes back. All
// four members have to be there. One of another type is there all the same: a text that is none
// counts as empty, a version that is no integer as 0.
[[nodiscard]] RecordProblem ReadRenewalRecord(const std::string& folder, RenewalRecord& record);

// Writes it (styled, 0400), replacing one that is there. Throws SLError 202 as WriteTextFile does.
void WriteRenewalRecord(const std::string& folder, const RenewalRecord& record);

}  // namespace kova
