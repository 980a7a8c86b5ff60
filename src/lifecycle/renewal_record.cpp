#include "lifecycle/renewal_record.h"

#include "base/log.h"
#include "lifecycle/names.h"
#include "platform/files.h"

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

std::string WhyUnusable(const std::string& folder) {
  RenewalRecord record;
  const std::string path = RenewalRecordPath(folder);
  if (!KLIBCFileExist(path)) return "it has no renewal record [" + path + "]";
  switch (ReadRenewalRecord(folder, record)) {
    case RecordProblem::kNotJson:
      return "its renewal record is no JSON object [" + path + "]";
    case RecordProblem::kIncomplete:
      return "its renewal record is not complete [" + path + "]";
    case RecordProblem::kNone:
      break;
  }
  const bool is_known = record.version == 1 || record.version == 2;
  return is_known ? "" : "its renewal record is of an unknown version [" + path + "]";
}

std::string WhyNotRenewable(const std::string& folder) {
  std::string why = WhyUnusable(folder);
  RenewalRecord record;
  if (!why.empty() || ReadRenewalRecord(folder, record) != RecordProblem::kNone) return why;
  if (!SplitDomainList(record.domains).empty()) return {};
  return "its renewal record names no host [" + RenewalRecordPath(folder) + "]";
}

}  // namespace kova
