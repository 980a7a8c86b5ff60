// The device record, and the buffers that its texts are copied to.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string>

#include "host_files.h"
#include "platform/device.h"
#include "property.h"

namespace {

bool IsPrintable(const std::string& text) {
  return std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < 32 || c == 127; });
}

template <size_t Size, class Call>
void Fill(const Call& call) {
  std::array<char, Size> buffer;
  buffer.fill('x');
  if (call(buffer.data(), static_cast<int>(Size)) != 0) return;
  const size_t length = strnlen(buffer.data(), Size);
  KOVA_REQUIRE(length > 0 && length < Size);
  KOVA_REQUIRE(IsPrintable(std::string(buffer.data(), length)));
}

template <class Call>
void FillSmallAndLarge(const Call& call) {
  Fill<8>(call);
  Fill<1024>(call);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kova::test::WriteFile(kova::test::kDeviceRecord,
                        std::string(reinterpret_cast<const char*>(data), size), 0600);
  FillSmallAndLarge(KLIBGetSerialNumber);
  FillSmallAndLarge(KOVADDNSGetKovaHostname);
  FillSmallAndLarge(
      [](char* buffer, int length) { return KLIBBoxinfoUserAgentGet("fuzz", buffer, length); });
  KOVA_TOLU_ACCOUNT account;
  if (KOVATOLUAccountGet(&account) == 0) {
    KOVA_REQUIRE(strnlen(account.id, sizeof account.id) < sizeof account.id);
    KOVA_REQUIRE(strnlen(account.auth_key, sizeof account.auth_key) < sizeof account.auth_key);
  }
  KOVA_REQUIRE(!kova::platform::DdnsNameServer().empty());
  KOVA_REQUIRE(IsPrintable(kova::platform::WebFrontendUnit()));
  const std::string digits = kova::platform::MacAddressText();
  KOVA_REQUIRE(digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos);
  (void)kova::platform::RouterUsesUpnp();
  return 0;
}
