// What comes over the pipe from the confined process that talks to the router.
#include <cstdint>
#include <string>

#include "platform/router_answer.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (size_t rules = 0; rules <= 3; ++rules) {
    const auto answer = kova::platform::ReadRouterAnswer(text, rules);
    if (!answer) continue;
    KOVA_REQUIRE(answer->granted.size() == rules);
    KOVA_REQUIRE(text.size() <= kova::platform::kLongestRouterAnswer);
    KOVA_REQUIRE(kova::platform::RouterAnswerText(*answer) == text);
  }
  return 0;
}
