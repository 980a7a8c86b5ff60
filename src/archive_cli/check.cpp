// kova-archive check: the integrity test, recovery included; with --host or --expiry, a look at the
// host or at the certificates' ends instead.

#include <limits>

#include "archive/deploy.h"
#include "archive/integrity.h"
#include "archive_cli/check_expiry.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/host_check.h"
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
     {"expiry", "DAYS", false, "change nothing; fail when one ends within DAYS or failed to renew"}},
    "Test certificates and repair those that lack files",
    Run};

}  // namespace kova::archive_cli
