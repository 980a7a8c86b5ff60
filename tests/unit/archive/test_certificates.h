// Certificates with chosen times, made with the library.
#pragma once

#include <string>

namespace kova::test {

struct PemPair {
  std::string certificate;
  std::string key;
};

// A self-signed certificate that expires `seconds` from now (in the past when negative).
PemPair MakePemPair(long seconds, const std::string& issuer_organization = "Test CA");

// What the product says of the two files: "yes", "no" or "unknown".
std::string MatchOf(const std::string& certificate, const std::string& key);

}  // namespace kova::test
