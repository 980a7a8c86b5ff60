// Big numbers in the text form of JWK: base64url of the unsigned big-endian bytes, minimal length.
#pragma once

#include <openssl/bn.h>

#include <string>

#include "crypto/openssl_ptr.h"

namespace kova {

// None when nothing decodes.
BignumPtr Base64UrlDecodeBignum(const std::string& text);
std::string Base64UrlEncodeBignum(const BIGNUM& number);

}  // namespace kova
