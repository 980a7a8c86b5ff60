// kova-archive unbind: takes a service from a certificate.

#include "archive/deploy.h"
#include "archive/index.h"
#include "archive/paths.h"
#include "archive/service_object.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/troubles.h"

namespace kova::archive_cli {
namespace {

using cert_archive::IndexEdit;

Json::Value RequireListed(const Json::Value& info, const std::string& id,
                          const Json::Value& service) {
  RequireEntry(info, id);
  Json::Value listed = FindService(info, id, service);
  if (listed.isNull()) {
    throw Failure{"certificate [" + id + "] does not list " + ServiceTitle(service)};
  }
  return listed;
}

Status TakeOff(const std::string& id, const Json::Value& service) {
  return cert_archive::EditIndex(cert_archive::kUpdateTimeout, [&](Json::Value& info) {
    RequireListed(info, id, service);
    UpdateServiceList(info[id]["services"], service, cert_archive::ListUpdate::kRemove);
    return IndexEdit::kWrite;
  });
}

// Empty when no certificate is the default one. A DEFAULT file that names a folder that is gone is
// as good as none; one that cannot be read may name anything.
std::string Heir() {
  std::string id;
  const Status read = cert_archive::ReadDefaultCertificate(id, cert_archive::GoneDefault::kIsNone);
  Require(read);
  return id;
}

Reply Run(const Arguments& arguments) {
  const std::string& id = arguments.operands[0];
  RequirePlainId(id);
  cert_archive::FinishInterruptedDeployment();
  // Which tree the service lives in does not matter here: the list knows.
  const Json::Value named = NamedService(arguments, /*is_package=*/true);
  const Json::Value listed = RequireListed(ReadIndexOrFail(), id, named);
  const std::string title = ServiceTitle(named);
  const std::string heir = Heir();
  Require(heir.empty() ? TakeOff(id, named) : cert_archive::TransferService(heir, listed, id),
          title + " could not be taken from [" + id + "]: ");
  // The default certificate hands its own service to nobody.
  const bool handed = !heir.empty() && heir != id;
  Reply reply;
  reply.text = handed ? title + " uses " + heir + ", the default certificate, now.\n"
                      : title + " is off the list of " + id + ".\n";
  if (handed) WarnOfReloads(heir, {title}, reply);
  reply.document["id"] = id;
  reply.document["subscriber"] = named["subscriber"];
  reply.document["service"] = named["service"];
  reply.document["handed_to"] = handed ? Json::Value(heir) : Json::Value();
  return reply;
}

}  // namespace

const Command kUnbind = {
    "unbind",
    "ID",
    1,
    1,
    {{"subscriber", "S", true, "the component or package that the service belongs to"},
     {"service", "N", true, "the service within it"}},
    "Hand a service to the default certificate",
    Run};

}  // namespace kova::archive_cli
