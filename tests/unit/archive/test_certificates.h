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

}  // namespace kova::test
