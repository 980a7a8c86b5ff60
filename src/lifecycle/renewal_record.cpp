#include "lifecycle/renewal_record.h"

#include "base/log.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

// What was chosen for the certificate cannot be told; the settings' choice holds instead.
void TellNoText(const std::string& folder, const RenewalRecord& record) {
  if (record.no_text.empty()) return;
  LogError(kTag, "renew info has no text as %s, it is not used. [%s]", record.no_text.c_str(),
           folder.c_str());
}

}  // namespace

std::optional<RenewalRecord> RecordOrMessage(const std::string& folder) {
  RenewalRecord record;
  switch (ReadRenewalRecord(folder, record)) {
    case RecordProblem::kNone:
      TellNoText(folder, record);
      if (record.version == 1 || record.version == 2) return record;
      LogError(kTag, "renew version seems to be wrong. [%s]", folder.c_str());
      break;
    case RecordProblem::kNotJson:
      LogError(kTag, "renew info is not json. [%s]", folder.c_str());
      break;
    case RecordProblem::kIncomplete:
      LogError(kTag, "renew info contain info not enoungh. [%s]", folder.c_str());
      break;
  }
  return std::nullopt;
}

}  // namespace kova
