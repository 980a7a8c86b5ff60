#include "archive_cli/host_check.h"

#include <array>
#include <utility>

#include "archive_cli/table.h"

namespace kova::archive_cli {
namespace {

struct LevelForm {
  const char* word;
  Colour colour;
};

const LevelForm& FormOf(Level level) {
  static constexpr std::array<LevelForm, 3> kForms = {{
      {"ok", Colour::kNone},
      {"warning", Colour::kYellow},
      {"failure", Colour::kRed},
  }};
  return kForms[static_cast<size_t>(level)];
}

std::string Sentence(const Finding& finding) {
  return finding.advice.empty() ? finding.text : finding.text + ": " + finding.advice;
}

Json::Value AsJson(const Finding& finding) {
  Json::Value object(Json::objectValue);
  object["level"] = FormOf(finding.level).word;
  object["subject"] = finding.subject;
  object["text"] = finding.text;
  object["advice"] = finding.advice;
  return object;
}

}  // namespace

std::vector<Finding> CheckHost() {
  std::vector<Finding> all;
  for (auto* check :
       {CheckArchiveRoot, CheckSettingsFile, CheckDeviceRecord, CheckHooks, CheckWebRoot,
        CheckRouter, CheckRenewalJob, CheckArchiveFolders, CheckRenewals, CheckReloadScripts,
        CheckServiceFiles, CheckClock, CheckTrustStore}) {
    for (Finding& finding : check()) all.push_back(std::move(finding));
  }
  return all;
}

Reply ReportFindings(const std::vector<Finding>& findings) {
  Reply reply;
  reply.document["findings"] = Json::Value(Json::arrayValue);
  std::vector<std::vector<Cell>> rows;
  int failures = 0;
  for (const Finding& finding : findings) {
    const LevelForm& form = FormOf(finding.level);
    rows.push_back({{form.word, form.colour}, {finding.subject}, {Sentence(finding)}});
    reply.document["findings"].append(AsJson(finding));
    if (finding.level == Level::kFailure) ++failures;
  }
  reply.document["failures"] = failures;
  reply.text = RenderTable({{"RESULT"}, {"OF"}, {"FINDING"}}, std::move(rows), Screen::OfStdout());
  if (failures > 0) {
    reply.failure = "this host is not ready: " + std::to_string(failures) +
                    (failures == 1 ? " check failed" : " checks failed");
  }
  return reply;
}

}  // namespace kova::archive_cli
