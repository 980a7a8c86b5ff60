// kova-archive revoke: at the CA; the files stay.

#include "lifecycle/revoke.h"

#include <algorithm>
#include <array>
#include <optional>

#include "archive/index.h"
#include "archive_cli/acme_front.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "archive_cli/text.h"
#include "lifecycle/failure.h"
#include "lifecycle/renewal_job.h"
#include "lifecycle/renewal_record.h"

namespace kova::archive_cli {
namespace {

struct Reason {
  const char* name;
  int number;
};
// RFC 5280, 5.3.1: those that a certificate's owner may give.
constexpr std::array<Reason, 5> kReasons = {{{"unspecified", 0},
                                             {"keyCompromise", 1},
                                             {"affiliationChanged", 3},
                                             {"superseded", 4},
                                             {"cessationOfOperation", 5}}};

std::string ReasonNames() {
  std::string names;
  for (const Reason& reason : kReasons)
    names += (names.empty() ? "" : ", ") + std::string(reason.name);
  return names;
}

std::optional<int> ReasonOf(const Arguments& arguments) {
  if (!arguments.Has("reason")) return std::nullopt;
  const std::string name = arguments.Text("reason");
  const auto* found = std::find_if(kReasons.begin(), kReasons.end(),
                                   [&](const Reason& reason) { return name == reason.name; });
  if (found == kReasons.end()) {
    throw UsageError{"there is no reason [" + name + "], only " + ReasonNames()};
  }
  return found->number;
}

// What the certificate's record says, which has to be usable.
RenewalRecord RequireRecord(const ArchivedCertificate& certificate, std::optional<int> reason) {
  const std::string which = "certificate [" + certificate.id + "] cannot be revoked";
  const std::string why = WhyUnusable(certificate.folder);
  if (!why.empty()) throw Failure{which + ": " + why};
  RenewalRecord record;
  (void)ReadRenewalRecord(certificate.folder, record);
  if (record.version == 1 && reason) {
    throw Failure{which + " for a reason: it is of the early protocol, which knows none"};
  }
  return record;
}

std::vector<std::string> Users(const std::string& id) {
  Json::Value info;
  if (!cert_archive::ReadIndexObject(info)) return {};  // it need not be in the index
  return ServiceTitles(info, id);
}

Reply Done(const ArchivedCertificate& certificate, const RenewalRecord& record,
           const Arguments& arguments) {
  const std::vector<std::string> users = Users(certificate.id);
  Reply reply;
  reply.text = certificate.id + " is revoked at " + Printable(record.server) + ".\n" +
               "Its files stay; it is not renewed any more.\n";
  if (!users.empty()) reply.text += Printable(Joined(users)) + " still uses it.\n";
  reply.document["id"] = certificate.id;
  reply.document["server"] = record.server;
  reply.document["reason"] =
      arguments.Has("reason") ? Json::Value(arguments.Text("reason")) : Json::Value();
  reply.document["services"] = JsonArray(users);
  return reply;
}

Reply Run(const Arguments& arguments) {
  const std::optional<int> reason = ReasonOf(arguments);
  RequireRoot();
  const ArchivedCertificate certificate = RequireCertificate(arguments.operands[0]);
  const RenewalRecord record = RequireRecord(certificate, reason);
  const RenewalSettings settings = ReadSettings();
  const std::vector<std::string> names =
      ReadFacts(certificate.folder + "/cert.pem", DueRule::Of(settings), 0).names;
  const std::optional<SLError> failure = Capture([&] {
    Revoke(certificate, settings, {reason, true});
  });
  if (failure) {
    Reply reply;
    Explain(reply, *failure, names, "certificate [" + certificate.id + "] is not revoked: ");
    return reply;
  }
  RemoveRenewalJobWhenUnused();
  return Done(certificate, record, arguments);
}

}  // namespace

const Command kRevoke = {
    "revoke",
    "ID",
    1,
    1,
    {{"reason", "R", false, "why, as RFC 5280 names it: keyCompromise, superseded, ..."}},
    "Revoke a certificate at its CA, and keep the files",
    Run};

}  // namespace kova::archive_cli
