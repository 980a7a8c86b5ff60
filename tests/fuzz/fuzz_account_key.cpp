// A stored account key that somebody damaged.
#include <cstdint>
#include <string>

#include "base/json.h"
#include "base/sl_error.h"
#include "crypto/rsa.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Json::Value stored;
  if (!kova::JsonFromText(std::string(reinterpret_cast<const char*>(data), size), stored)) return 0;
  const auto key = kova::RsaKey::FromJson(stored);
  KOVA_REQUIRE(key != nullptr);
  KOVA_REQUIRE(key->ToJson().size() == 9 && key->PublicJwk().size() == 3);
  KOVA_REQUIRE(key->Thumbprint().size() == 43);
  try {
    KOVA_REQUIRE(!key->Sign("text").empty());
  } catch (const kova::SLError& error) {
    KOVA_REQUIRE(error.code == kova::code::kAccountKey);
  }
  return 0;
}
