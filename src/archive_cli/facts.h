// What a certificate says about itself, and what its folder says about it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lifecycle/lifetime.h"

namespace kova::archive_cli {

enum class State { kValid, kDue, kExpired, kUnreadable };

struct CertificateFacts {
  std::vector<std::string> names;  // host names and addresses it is for
  std::string issuer;              // the issuer's organisation; its common name if it has none
  std::int64_t not_after = 0;      // seconds since the epoch
  State state = State::kUnreadable;
};

// The first certificate of the PEM file.
CertificateFacts ReadFacts(const std::string& path, const DueRule& rule, std::int64_t now);

// Whole days from `now` to the certificate's end, rounded down; negative once it has expired.
std::int64_t DaysLeft(const CertificateFacts& facts, std::int64_t now);

const char* Word(State state);

// "acme": renewed by kova-letsencrypt. "broken": its files were lost and replaced. "self-signed":
// the files are a default set of this host. "incomplete": it lacks necessary files.
std::vector<std::string> FolderFlags(const std::string& folder);

// UTC. "2026-11-21" and "2026-11-21T10:00:00Z".
std::string DateText(std::int64_t seconds);
std::string TimeText(std::int64_t seconds);

}  // namespace kova::archive_cli
