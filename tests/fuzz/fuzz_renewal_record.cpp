// A certificate's renewal record that somebody damaged.
#include <cstdint>
#include <string>

#include "acme/renewal_record.h"
#include "host_files.h"
#include "property.h"

namespace {

constexpr char kFolder[] = "/run/kova-fuzz";

kova::RecordProblem Read(kova::RenewalRecord& record) {
  return kova::ReadRenewalRecord(kFolder, record);
}

}  // namespace

// What was read and written once is read the same from then on.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = kova::RenewalRecordPath(kFolder);
  kova::test::WriteFile(path, std::string(reinterpret_cast<const char*>(data), size));
  kova::RenewalRecord record;
  if (Read(record) != kova::RecordProblem::kNone) return 0;
  kova::WriteRenewalRecord(kFolder, record);
  const std::string written = kova::test::ReadFile(path);
  KOVA_REQUIRE(kova::test::ModeOf(path) == 0400);
  kova::RenewalRecord again;
  KOVA_REQUIRE(Read(again) == kova::RecordProblem::kNone);
  KOVA_REQUIRE(again.version == record.version);
  kova::WriteRenewalRecord(kFolder, again);
  KOVA_REQUIRE(kova::test::ReadFile(path) == written);
  return 0;
}
