// PEM: certificates and private keys read from files and texts, and the base64 between the markers.
#pragma once

#include <string>

#include "crypto/openssl_ptr.h"

namespace kova {

inline constexpr char kCertificateBegin[] = "-----BEGIN CERTIFICATE-----";
inline constexpr char kCertificateEnd[] = "-----END CERTIFICATE-----";
inline constexpr char kRequestBegin[] = "-----BEGIN CERTIFICATE REQUEST-----";
inline constexpr char kRequestEnd[] = "-----END CERTIFICATE REQUEST-----";

// To read a PEM file. None, with errno, when it cannot be opened; a pipe, a socket or a device is
// not opened and never waited for.
[[nodiscard]] BioPtr OpenPem(const std::string& path);

// To read a PEM text, which must outlive the result. None when there is no memory.
[[nodiscard]] BioPtr PemSource(const std::string& text);

// The next one that `source` holds, or none: the library's error queue then says why not. Nobody
// is asked for a pass phrase; what needs one cannot be read.
[[nodiscard]] X509Ptr ReadCertificate(BIO& source);
[[nodiscard]] EvpPkeyPtr ReadPrivateKey(BIO& source);

// PEM text of a DER certificate, or an empty string when the bytes are not one.
std::string DerToPem(const std::string& der);

// The base64url text of the DER between the first `begin` and the `end` after it: line feeds
// dropped, alphabet changed, "=" padding kept on purpose (servers accept it). Throws
// std::out_of_range when the text holds no such block.
std::string PemToBase64Url(const std::string& pem, const std::string& begin,
                           const std::string& end);

}  // namespace kova
