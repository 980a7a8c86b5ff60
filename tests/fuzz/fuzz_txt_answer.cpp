// What a name server answers to the question for a TXT record.
#include <algorithm>
#include <cstdint>
#include <string>

#include "challenge/challenge.h"
#include "host_files.h"
#include "property.h"

namespace {

constexpr char kExpected[] = "Zq-Token_42";
std::string answer;

}  // namespace

// The linker's name for the replacement.
extern "C" int __wrap_res_query(const char*, int, int, unsigned char* buffer,  // NOLINT
                                int size) {
  std::copy_n(answer.begin(), std::min(answer.size(), static_cast<size_t>(size)), buffer);
  return static_cast<int>(answer.size());
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kova::test::WriteFile(kova::test::kDeviceRecord, R"({"ddns_name_server": "127.0.0.1"})", 0600);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  answer.assign(reinterpret_cast<const char*>(data), size);
  const bool found = kova::CheckTxtRecord("host.example", kExpected);
  KOVA_REQUIRE(!found || answer.find(kExpected) != std::string::npos);
  return 0;
}
