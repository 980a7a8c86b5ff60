// The one exception type of the ACME, HTTP, cryptography and challenge layers.
//
// Drivers catch it by reference and turn it into the failure document on standard output. The
// archive and default-certificate code never throws it.
#pragma once

#include <string>

#include "base/log.h"

namespace kova {

// Classes of failure. The numbers are interface: callers of the program see them as the "error"
// member of the failure document and, reduced to 8 bits, as the exit status.
namespace code {
inline constexpr int kUnreachable = 100;       // transfer failed
inline constexpr int kConnection = 101;        // validation: connection error; ports not opened
inline constexpr int kRefused = 102;           // authorization or order refused, or timed out
inline constexpr int kAccountRateLimit = 103;  // registration answered 429
inline constexpr int kOrderRateLimit = 104;    // order answered 429
inline constexpr int kAccountRefused = 105;    // registration answered 400
inline constexpr int kNoDomain = 106;          // "no valid domain name"
inline constexpr int kRetryWithPortMap = 107;  // v1 only, never leaves the client
inline constexpr int kNotKovaDdns = 108;       // wildcard outside the vendor DDNS zone
inline constexpr int kDns = 109;               // validation: DNS error
inline constexpr int kUnauthorized = 110;      // validation: unauthorized
inline constexpr int kProtocol = 200;          // unexpected status, unusable or missing content
inline constexpr int kAccountKey = 201;        // account key or record unusable; redeploy failures
inline constexpr int kLocal = 202;             // files, modes, CSR, anything not an SLError
inline constexpr int kChallengeSetup = 203;    // v1: "Challenge setup is failed."
inline constexpr int kNoNonce = 204;           // nonce pool empty; unknown challenge type
inline constexpr int kBadNonceFinalize = 205;  // finalize kept failing with a bad nonce
}  // namespace code

class SLError {
 public:
  // `file` is a source-file tag without extension ("client_v2", "utils", ...).
  SLError(int number, std::string text, std::string tag, int at);

  // Formats the message; a result longer than 511 bytes is cut, never rejected.
  [[gnu::format(printf, 5, 6)]] SLError(int number, const char* tag, int at, const char* format,
                                        ...);

  // A text received from a server as the message. It is data: a "%" in it is printed as it is.
  // Cut at 511 bytes like every formatted message.
  static SLError FromServerText(int code, Site site, const std::string& text);

  int code;
  std::string message;
  std::string file;
  int line;

  // For people alone, in no document; empty when there is nothing to add.
  std::string name{};   // whom it is about: one of several names, or all of them
  std::string cause{};  // what the CA said, where `message` keeps that to itself
};

// Shorthand for the throw sites: throw Error(code::kProtocol, kTag, "Directory Member missing.");
SLError Error(int code, Site site, std::string message);

}  // namespace kova
