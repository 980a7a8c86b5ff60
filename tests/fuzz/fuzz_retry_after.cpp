// How long a server asks to be left alone.
#include <cstdint>
#include <string>

#include "net/headers.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using std::chrono::seconds;
  const std::string value(reinterpret_cast<const char*>(data), size);
  kova::HttpResponse response;
  response.header = "HTTP/1.1 200 OK\r\nRetry-After: " + value + "\r\n\r\n";
  const auto wait = kova::RetryAfter(response);
  KOVA_REQUIRE(!wait || (*wait >= seconds(1) && *wait <= seconds(10)));
  const bool is_number =
      !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
  KOVA_REQUIRE(!is_number || wait);
  return 0;
}
