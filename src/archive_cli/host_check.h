// `kova-archive check --host`: what on this host would make an issuance or a renewal fail.
#pragma once

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
// router; nothing else is touched.
std::vector<Finding> CheckHost();

// The single looks, in the order of the report.
std::vector<Finding> CheckArchiveRoot();
std::vector<Finding> CheckSettingsFile();
std::vector<Finding> CheckDeviceRecord();
std::vector<Finding> CheckHooks();
std::vector<Finding> CheckWebRoot();
std::vector<Finding> CheckRouter();
std::vector<Finding> CheckRenewalJob();
std::vector<Finding> CheckClock();
std::vector<Finding> CheckTrustStore();

}  // namespace kova::archive_cli
