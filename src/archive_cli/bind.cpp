// kova-archive bind: gives a service to a certificate.

#include "archive/deploy.h"
#include "archive/index.h"
#include "archive/service_object.h"
#include "archive_cli/changes.h"
#include "archive_cli/entries.h"
#include "archive_cli/reload_example.h"
#include "archive_cli/troubles.h"
#include "base/json.h"
#include "platform/service.h"

namespace kova::archive_cli {
namespace {

using cert_archive::IndexEdit;
using cert_archive::ListUpdate;

// What is to be done, decided under the lock.
struct Plan {
  Json::Value object;
  std::vector<std::string> sources;  // other certificates that list the service
};

}  // namespace

Json::Value WantedService(const Arguments& arguments) {
  Json::Value object = NamedService(arguments, arguments.Has("package"));
  object["display_name"] = arguments.Text("display-name");
  object["owner"] = arguments.Text("owner");
  if (arguments.Text("display-name").empty()) throw Failure{"the display name is empty"};
  uid_t uid = 0;
  gid_t gid = 0;
  if (KOVAUserGetUGID(arguments.Text("owner"), &uid, &gid) < 0) {
    throw Failure{"there is no user [" + arguments.Text("owner") + "]"};
  }
  return object;
}

namespace {

// The wanted object with what others keep in the listed one. A translated name is that of the old
// display name, so it only survives together with it.
Json::Value Merged(const Json::Value& listed, const Json::Value& wanted) {
  if (!listed.isObject()) return wanted;
  Json::Value merged = listed;
  for (const std::string& key : wanted.getMemberNames()) merged[key] = wanted[key];
  if (listed["display_name"] != wanted["display_name"]) merged.removeMember("display_name_i18n");
  return merged;
}

void RequireServiceList(const Json::Value& info, const std::string& id) {
  const Json::Value& services = Member(info[id], "services");
  if (!services.isNull() && !services.isArray()) {
    throw Failure{"certificate [" + id + "] has a damaged service list"};
  }
}

Plan MakePlan(const Json::Value& info, const std::string& id, const Json::Value& wanted) {
  RequireEntry(info, id);
  RequireServiceList(info, id);
  RequireOwnFolder(info, wanted);
  Plan plan{wanted, {}};
  Json::Value listed = FindService(info, id, wanted);
  for (const std::string& other : CertificatesWith(info, wanted)) {
    if (other == id) continue;
    plan.sources.push_back(other);
    if (listed.isNull()) listed = FindService(info, other, wanted);
  }
  plan.object = Merged(listed, wanted);
  return plan;
}

// A service that no other certificate lists is entered; one that another lists is moved below, as
// part of its deployment.
IndexEdit Enter(Json::Value& info, const std::string& id, const Plan& plan) {
  Json::Value& services = info[id]["services"];
  if (plan.sources.empty()) {
    UpdateServiceList(services, plan.object, ListUpdate::kAppend);
    return IndexEdit::kWrite;
  }
  if (services.isArray()) return IndexEdit::kLeave;
  services = Json::Value(Json::arrayValue);
  return IndexEdit::kWrite;
}

// Before the service is deployed, so that it is reloaded then. Throws before anything is touched.
ReloadScriptReport PutReloadScript(const Arguments& arguments, const std::string& id,
                                   const Json::Value& wanted) {
  if (!arguments.Has("reload")) return {};
  const ReloadExample example = ReloadExample::Named(arguments.Text("reload"));
  (void)MakePlan(ReadIndexOrFail(), id, wanted);
  return example.PutInPlace(cert_archive::ServiceFrom(wanted));
}

}  // namespace

std::string GiveService(const std::string& id, const Json::Value& wanted) {
  const std::string title = ServiceTitle(wanted);
  Plan plan;
  Require(cert_archive::EditIndex(cert_archive::kUpdateTimeout, [&](Json::Value& info) {
    plan = MakePlan(info, id, wanted);
    return Enter(info, id, plan);
  }));
  Require(cert_archive::TransferService(id, plan.object, ""),
          title + " could not be served with [" + id + "]: ");
  // Somebody else may have moved it on by now; that nobody lists it is another matter.
  if (CertificatesWith(ReadIndexOrFail(), wanted).empty()) {
    throw Failure{title + " has the files of [" + id + "], but the index does not say so"};
  }
  return plan.sources.empty() ? std::string() : plan.sources[0];
}

namespace {

Reply Run(const Arguments& arguments) {
  const std::string& id = arguments.operands[0];
  RequirePlainId(id);
  const Json::Value wanted = WantedService(arguments);
  const ReloadScriptReport script = PutReloadScript(arguments, id, wanted);
  const std::string before = GiveService(id, wanted);
  Reply reply;
  reply.text = ServiceTitle(wanted) + " uses " + id + " now.\n";
  script.AddTo(reply);
  WarnOfReloads(id, {ServiceTitle(wanted)}, reply);
  reply.document["id"] = id;
  reply.document["subscriber"] = wanted["subscriber"];
  reply.document["service"] = wanted["service"];
  reply.document["moved_from"] = before.empty() ? Json::Value() : Json::Value(before);
  return reply;
}

}  // namespace

const Command kBind = {
    "bind",
    "ID",
    1,
    1,
    {{"subscriber", "S", true, "the component or package that the service belongs to"},
     {"service", "N", true, "the service within it"},
     {"display-name", "D", true, "its name for people"},
     {"owner", "U", true, "the user who shall own the deployed files"},
     {"package", nullptr, false, "the subscriber is an installed package"},
     {"reload", "SERVER", false, "put its example of a reload script in place if there is none"}},
    "Give a service to a certificate",
    Run};

}  // namespace kova::archive_cli
