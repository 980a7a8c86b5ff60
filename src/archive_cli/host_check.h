// `kova-archive check --host`: what on this host would make an issuance or a renewal fail.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "archive_cli/command.h"

namespace kova::archive_cli {

enum class Level { kOk, kWarning, kFailure };

struct Finding {
  Level level;
  std::string subject;  // what was looked at, one or two words
  std::string text;     // what was found
  std::string advice;   // what to do; empty when nothing is to be done
};

// One line per finding, the worst last being told by Reply::failure: a warning is no failure.
Reply ReportFindings(const std::vector<Finding>& findings);

// Looks at everything. Writes, fetches and removes one probe file of the web root, and asks for a
// router; nothing else is touched, and no authority is asked.
std::vector<Finding> CheckHost();

// The index as the single looks need it: a missing one is empty. None when it is damaged, of which
// CheckArchiveRoot tells, and those that need it then say nothing.
std::optional<Json::Value> IndexToCheck();

// The single looks, in the order of the report.
std::vector<Finding> CheckArchiveRoot();
std::vector<Finding> CheckSettingsFile();
std::vector<Finding> CheckDeviceRecord();
std::vector<Finding> CheckHooks();
std::vector<Finding> CheckWebRoot();
std::vector<Finding> CheckRouter();
std::vector<Finding> CheckRenewalJob();
std::vector<Finding> CheckArchiveFolders();
std::vector<Finding> CheckRenewals();
std::vector<Finding> CheckReloadScripts();
std::vector<Finding> CheckServiceFiles();
std::vector<Finding> CheckClock();
std::vector<Finding> CheckTrustStore();

}  // namespace kova::archive_cli
