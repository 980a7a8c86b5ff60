#include "archive_cli/troubles.h"

#include <utility>

#include "archive/reload_mark.h"
#include "archive_cli/text.h"

namespace kova::archive_cli {

RenewalHistory RememberedRenewals(const std::string& id, const RenewalSettings& settings) {
  RenewalHistory kept;
  if (settings.renew_failures) {
    kept = ReadRenewalHistory(id);
  } else if (settings.renewal_info) {
    kept.advice = ReadRenewalHistory(id).advice;
  }
  return kept;
}

std::string RenewalFailure(const RenewalHistory& history) {
  if (history.failures == 0) return {};
  // An earlier version did not note when failures began.
  const std::string& since =
      history.failing_since.empty() ? history.last_attempt : history.failing_since;
  // Servers write the message, so it must not steer a terminal.
  return "renewal fails since " + Printable(since) + " (" + std::to_string(history.failures) +
         " in a row): " + Printable(history.message) + " [" + std::to_string(history.error) + "]";
}

std::vector<std::string> ReloadFailuresOf(const Json::Value& marks,
                                          const std::vector<std::string>& services) {
  std::vector<std::string> lines;
  for (const std::string& service : services) {
    if (!marks.isMember(service)) continue;
    lines.push_back("the reload script of " + Printable(service) + " ended with status " +
                    std::to_string(marks[service].asInt()));
  }
  return lines;
}

void WarnOfReloads(const std::string& id, const std::vector<std::string>& services, Reply& reply) {
  for (std::string& line : ReloadFailuresOf(cert_archive::ReloadFailures(id), services)) {
    reply.warnings.push_back(std::move(line));
  }
}

}  // namespace kova::archive_cli
