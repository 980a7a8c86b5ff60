// What a CA says about the renewal of a certificate, and the moments in it.
#include <algorithm>
#include <cstdint>
#include <string>

#include "acme_v2/renewal_info.h"
#include "base/rfc3339.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  (void)kova::MomentOfText(text);
  const auto info = kova::ParseRenewalInfo(text);
  if (!info) return 0;
  KOVA_REQUIRE(info->window.start <= info->window.end);
  KOVA_REQUIRE(info->explanation_url.size() <= 512);
  KOVA_REQUIRE(std::all_of(info->explanation_url.begin(), info->explanation_url.end(),
                           [](char c) { return c >= ' ' && c <= '~'; }));
  return 0;
}
