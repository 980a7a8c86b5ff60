// The renewal record (renew.json) of a certificate folder, as the drivers read it.
#pragma once

#include <optional>
#include <string>

namespace kova {

struct RenewalRecord {
  std::string server;                  // directory URL
  std::optional<std::string> domains;  // ";"-separated; none when it is no text
  std::string account;                 // folder of the account store
  int version = 0;                     // 1 or 2; 0 when it is anything else
};

std::string RenewalRecordPath(const std::string& folder);

// The record of the folder, whose file exists. None, with a message, when it is not JSON or lacks
// one of the four members. A server or account that is no text is as good as missing.
std::optional<RenewalRecord> ReadRenewalRecord(const std::string& folder);

// Says that the record lacks what is needed.
void LogIncompleteRecord(const std::string& folder);

// Says that the record's version is neither 1 nor 2.
void LogWrongVersion(const std::string& folder);

}  // namespace kova
