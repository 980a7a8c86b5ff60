// Keys, requests and certificates made by the system's openssl tool. What it makes is open to its
// owner alone, from the first byte on. What fails is logged.
#pragma once

#include <string>

#include "self_signed/mkcert_config.h"

namespace kova::mkcert {

inline constexpr char kOpenssl[] = "/usr/bin/openssl";
inline constexpr char kCaRequest[] = "/usr/kova/etc/ssl/ssl.csr/ca.csr";
inline constexpr char kServerRequest[] = "/usr/kova/etc/ssl/.gen/server.csr";

Status GenerateKey(const std::string& key, int bits);

// Writes `config` for the subject and makes a request for the key.
Status GenerateRequest(const std::string& config, const std::string& key,
                       const std::string& request, const Subject* subject);

struct SigningOrder {
  std::string extension_file;  // written anew by the call
  std::string request;
  std::string certificate;  // the CA's certificate, or, self-signed, the one to make
  std::string serial_file;  // the tool advances it; unused when self-signed
  std::string output;       // the certificate to make; unused when self-signed
  std::string key;          // the CA's, or, self-signed, the certificate's own
  bool self_signed = false;
  int days = 0;
  std::string aliases;  // separated by ";"; unused when self-signed
};

Status SignCertificate(const SigningOrder& order);

// Whether the certificate is for that private key; fails when that cannot be told. Both files lose
// a leading byte-order mark.
Status MatchKey(const std::string& certificate, const std::string& key, bool& matches);

}  // namespace kova::mkcert
