// kova-archive deploy: redeploys a certificate to its own services.

#include "archive/deploy.h"

#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/troubles.h"

namespace kova::archive_cli {
namespace {

Reply Run(const Arguments& arguments) {
  const std::string& id = arguments.operands[0];
  RequirePlainId(id);
  const Json::Value info = ReadIndexOrFail();
  RequireEntry(info, id);
  const std::vector<std::string> titles = ServiceTitles(info, id);
  bool has_system_default = false;
  Require(cert_archive::DeployToOwnServices(id, has_system_default));
  Reply reply;
  reply.text = titles.empty() ? id + " has no services.\n"
                              : id + " is deployed to " + Joined(titles) + ".\n";
  WarnOfReloads(id, titles, reply);
  reply.document["id"] = id;
  reply.document["services"] = JsonArray(titles);
  reply.document["has_system_default"] = has_system_default;
  return reply;
}

}  // namespace

const Command kDeploy = {"deploy", "ID", 1, 1, {}, "Deploy a certificate to its services again",
                         Run};

}  // namespace kova::archive_cli
