// A list of names, as a command line or a renewal record has it.
#include <cctype>
#include <cstdint>
#include <string>

#include "challenge/challenge.h"
#include "lifecycle/names.h"
#include "property.h"

namespace {

bool IsBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const char separator : {';', ','}) {
    size_t position = 0;
    for (const std::string& name : kova::SplitDomainList(text, separator)) {
      KOVA_REQUIRE(!name.empty() && !IsBlank(name.front()) && !IsBlank(name.back()));
      KOVA_REQUIRE(name.find(separator) == std::string::npos);
      position = text.find(name, position);
      KOVA_REQUIRE(position != std::string::npos);
      position += name.size();
    }
  }
  (void)kova::IsHostName(text);
  return 0;
}
