// kova-archive check: the integrity test, recovery included; with --host or --expiry, a look at the
// host or at the certificates' ends instead.

#include <charconv>
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "archive/deploy.h"
#include "archive/integrity.h"
#include "archive/paths.h"
#include "archive/reload_mark.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "archive_cli/host_check.h"
#include "archive_cli/troubles.h"
#include "base/json.h"
#include "base/renewal_settings.h"
#include "lifecycle/removal.h"

namespace kova::archive_cli {
namespace {

using cert_archive::Integrity;

using cert_archive::Verdict;

const char* Word(Integrity result) {
  switch (result) {
    case Integrity::kUsable:
      return "ok";
    case Integrity::kRecovered:
      return "recovered";
    case Integrity::kUnusable:
      break;
  }
  return "failed";
}

void Report(const std::string& id, const Verdict& verdict, Reply& reply) {
  const std::string reason = verdict.reason.Text();
  reply.text += id + ": " + Word(verdict.integrity) + (reason.empty() ? "" : " (" + reason + ")");
  reply.text += "\n";
  Json::Value object;
  object["id"] = id;
  object["result"] = Word(verdict.integrity);
  object["reason"] = reason;
  reply.document["certificates"].append(object);
}

constexpr int kMostDays = 36500;

int ParseDays(const std::string& text) {
  int days = -1;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, days);
  if (parsed.ec != std::errc() || parsed.ptr != end || days < 0 || days > kMostDays) {
    throw UsageError{"--expiry takes a number of days, 0 to " + std::to_string(kMostDays)};
  }
  return days;
}

// What is to be said of the certificate in that folder at that moment; empty when nothing.
std::string ExpiryFinding(const std::string& folder, int days, std::int64_t now) {
  const CertificateFacts facts = ReadFacts(folder + "/cert.pem", {false, days}, now);
  switch (facts.state) {
    case State::kUnreadable:
      return "its cert.pem cannot be read";
    case State::kExpired:
      return "ended at " + TimeText(facts.not_after);
    case State::kDue:
      return "ends at " + TimeText(facts.not_after);
    case State::kValid:
      break;
  }
  return {};
}

class Findings {
 public:
  Findings(int days, std::int64_t now) : days_(days), now_(now) {}

  [[nodiscard]] std::vector<std::string> Of(const Json::Value& info, const std::string& id) const {
    if (!cert_archive::IsPlainName(id) || !Member(info, id.c_str()).isObject()) {
      return {"is not a certificate of the index"};
    }
    std::vector<std::string> findings = {
        ExpiryFinding(cert_archive::CertificateFolder(id), days_, now_),
        RenewalFailure(RememberedRenewals(id, settings_))};
    std::erase(findings, "");
    for (std::string& finding :
         ReloadFailuresOf(cert_archive::ReloadFailures(id), ServiceTitles(info, id))) {
      findings.push_back(std::move(finding));
    }
    return findings;
  }

 private:
  RenewalSettings settings_ = RenewalSettings::Read();
  int days_;
  std::int64_t now_;
};

void ReportFinding(const std::string& id, const std::string& finding, Reply& reply) {
  reply.text += id + ": " + finding + "\n";
  Json::Value object;
  object["id"] = id;
  object["finding"] = finding;
  reply.document["findings"].append(object);
}

// For monitoring: one line per finding; the run fails when there is one. Nothing is changed: an
// incomplete certificate is told, not repaired.
Reply CheckExpiry(const Arguments& arguments) {
  const int days = ParseDays(arguments.Text("expiry"));
  const Findings looked_for(days, std::time(nullptr));
  const Json::Value info = ReadIndexOrFail();
  Reply reply;
  reply.document["findings"] = Json::Value(Json::arrayValue);
  size_t count = 0;
  const std::vector<std::string> ids =
      arguments.operands.empty() ? info.getMemberNames() : arguments.operands;
  for (const std::string& id : ids) {
    const std::vector<std::string> findings = looked_for.Of(info, id);
    for (const std::string& finding : findings) ReportFinding(id, finding, reply);
    if (!findings.empty()) ++count;
  }
  if (count > 0) {
    reply.failure = std::to_string(count) + " of " + std::to_string(ids.size()) +
                    " certificates need attention";
  }
  return reply;
}

Reply Run(const Arguments& arguments) {
  if (arguments.Has("host")) {
    if (!arguments.operands.empty()) throw UsageError{"--host takes no ID"};
    if (arguments.Has("expiry")) throw UsageError{"--host takes no --expiry"};
    return ReportFindings(CheckHost());
  }
  if (arguments.Has("expiry")) return CheckExpiry(arguments);
  FinishRemovals();
  cert_archive::FinishInterruptedDeployment();
  const Json::Value info = ReadIndexOrFail();
  const std::vector<std::string> ids =
      arguments.operands.empty() ? info.getMemberNames() : arguments.operands;
  Reply reply;
  reply.document["certificates"] = Json::Value(Json::arrayValue);
  std::vector<std::string> failed;
  for (const std::string& id : ids) {
    const Verdict verdict = cert_archive::TestIntegrity(info, id);
    Report(id, verdict, reply);
    if (verdict.integrity == Integrity::kUnusable) {
      failed.push_back(id + ": " + verdict.reason.Text());
    }
  }
  reply.failure = Joined(failed);
  return reply;
}

}  // namespace

const Command kCheck = {
    "check",
    "[ID ...]",
    0,
    std::numeric_limits<size_t>::max(),
    {{"host", nullptr, false, "tell what on this host would make issuance or renewal fail"},
     {"expiry", "DAYS", false,
      "change nothing; fail when one ends within DAYS or failed to renew"}},
    "Test certificates and repair those that lack files",
    Run};

}  // namespace kova::archive_cli
