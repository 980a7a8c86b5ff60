// kova-archive check: the integrity test, recovery included; with --host, a look at the host
// instead.

#include <limits>

#include "archive/integrity.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/host_check.h"
#include "archive_cli/reasons.h"

namespace kova::archive_cli {
namespace {

using cert_archive::Integrity;

struct Verdict {
  std::string id;
  Integrity result;
  std::string reason;  // of a failure or a recovery
};

Verdict Test(const std::string& id) {
  const Reasons reasons;
  const Integrity result = cert_archive::TestIntegrity(id);
  return {id, result, result == Integrity::kUsable ? "" : reasons.First()};
}

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

void Report(const Verdict& verdict, Reply& reply) {
  const std::string reason = verdict.reason.empty() ? "" : " (" + verdict.reason + ")";
  reply.text += verdict.id + ": " + Word(verdict.result) + reason + "\n";
  Json::Value object;
  object["id"] = verdict.id;
  object["result"] = Word(verdict.result);
  object["reason"] = verdict.reason;
  reply.document["certificates"].append(object);
}

Reply Run(const Arguments& arguments) {
  if (arguments.Has("host")) {
    if (!arguments.operands.empty()) throw UsageError{"--host takes no ID"};
    return ReportFindings(CheckHost());
  }
  const std::vector<std::string> ids =
      arguments.operands.empty() ? ReadIndexOrFail().getMemberNames() : arguments.operands;
  Reply reply;
  reply.document["certificates"] = Json::Value(Json::arrayValue);
  std::vector<std::string> failed;
  for (const std::string& id : ids) {
    const Verdict verdict = Test(id);
    Report(verdict, reply);
    if (verdict.result == Integrity::kUnusable) failed.push_back(id + ": " + verdict.reason);
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
    {{"host", nullptr, false, "tell what on this host would make issuance or renewal fail"}},
    "Test certificates and repair those that lack files",
    Run};

}  // namespace kova::archive_cli
