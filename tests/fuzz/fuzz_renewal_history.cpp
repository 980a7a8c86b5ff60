// A certificate's renewal history that somebody damaged.
#include <cstdint>
#include <string>

#include "host_files.h"
#include "lifecycle/renewal_history.h"
#include "property.h"

namespace {

constexpr char kId[] = "fuzz";

}  // namespace

// What was read and written once is read the same from then on.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = std::string(kova::kHistoryFolder) + "/" + kId + ".json";
  kova::test::WriteFile(path, std::string(reinterpret_cast<const char*>(data), size), 0600);
  const kova::RenewalHistory history = kova::ReadRenewalHistory(kId);
  (void)kova::IsWaiting(history, 1'800'000'000);
  (void)kova::IsToBeNotified(history, 1'800'000'000);
  kova::WriteRenewalHistory(kId, history);
  const std::string written = kova::test::ReadFile(path);
  KOVA_REQUIRE(kova::test::ModeOf(path) == 0600 && !written.empty());
  kova::WriteRenewalHistory(kId, kova::ReadRenewalHistory(kId));
  KOVA_REQUIRE(kova::test::ReadFile(path) == written);
  return 0;
}
