// The header text of a reply.
#include <cstdint>
#include <string>

#include "net/headers.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using std::chrono::seconds;
  kova::HttpResponse response;
  response.header.assign(reinterpret_cast<const char*>(data), size);
  for (const char* name : {"Replay-Nonce", "Location", "Link", "Retry-After"}) {
    const std::string value = kova::GetHeader(response, name);
    KOVA_REQUIRE(value.find("\r\n") == std::string::npos);
    KOVA_REQUIRE(value.empty() || response.header.find(name + (": " + value)) != std::string::npos);
    size_t position = 0;
    for (size_t before = 0; position != std::string::npos; before = position) {
      (void)kova::GetHeader(response, name, position);
      KOVA_REQUIRE(position == std::string::npos || position > before);
    }
  }
  for (const char* relation : {"up", "terms-of-service"}) {
    const std::string url = kova::GetLinkUrl(response, relation);
    KOVA_REQUIRE(url.empty() || response.header.find("<" + url + ">") != std::string::npos);
  }
  const seconds wait = kova::RetryAfter(response).value_or(seconds(2));
  KOVA_REQUIRE(wait >= seconds(1) && wait <= seconds(10));
  return 0;
}
