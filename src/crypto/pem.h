// PEM text handling that needs no parsing of the content.
#pragma once

#include <string>

namespace kova {

inline constexpr char kCertificateBegin[] = "-----BEGIN CERTIFICATE-----";
inline constexpr char kCertificateEnd[] = "-----END CERTIFICATE-----";
inline constexpr char kRequestBegin[] = "-----BEGIN CERTIFICATE REQUEST-----";
inline constexpr char kRequestEnd[] = "-----END CERTIFICATE REQUEST-----";

// The base64url text of the DER between the first `begin` and the `end` after it: line feeds
// dropped, alphabet changed, "=" padding kept on purpose (servers accept it). Throws
// std::out_of_range when the text holds no such block.
std::string PemToBase64Url(const std::string& pem, const std::string& begin,
                           const std::string& end);

}  // namespace kova
