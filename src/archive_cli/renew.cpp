// kova-archive renew: what renew-all does, to one certificate.

#include <ctime>

#include "archive_cli/acme_front.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "archive_cli/text.h"
#include "archive_cli/troubles.h"
#include "lifecycle/renew_all.h"
#include "lifecycle/renewal_history.h"
#include "lifecycle/renewal_record.h"

namespace kova::archive_cli {
namespace {

struct Work {
  ArchivedCertificate certificate;
  RenewalSettings settings;
  std::vector<std::string> services;  // titles
  CertificateFacts facts;             // as it is now
};

CertificateFacts FactsOf(const ArchivedCertificate& certificate, const RenewalSettings& settings) {
  return ReadFacts(certificate.folder + "/cert.pem", DueRule::Of(settings), std::time(nullptr));
}

Work Begin(const std::string& id_or_folder) {
  Work work{RequireCertificate(id_or_folder), ReadSettings(), {}, {}};
  const std::string& id = work.certificate.id;
  const Json::Value info = ReadIndexOrFail();
  RequireEntry(info, id);
  work.services = ServiceTitles(info, id);
  const std::string why = WhyNotRenewable(work.certificate.folder);
  if (!why.empty()) throw Failure{"certificate [" + id + "] cannot be renewed: " + why};
  return work;
}

void AddFacts(const Work& work, const char* result, Json::Value& document) {
  document["id"] = work.certificate.id;
  document["result"] = result;
  document["names"] = JsonArray(work.facts.names);
  document["not_after"] = work.facts.state == State::kUnreadable
                              ? Json::Value()
                              : Json::Value(TimeText(work.facts.not_after));
  document["services"] = JsonArray(work.services);
}

std::string WhyNotDue(const Work& work, Prospect found) {
  const std::string& id = work.certificate.id;
  if (found == Prospect::kOtherIssuer) {
    return id + " is none that renew-all renews: it was not issued by Let's Encrypt, and the " +
           "setting renewanyissuer is off.";
  }
  return id + " is not due: it is " + Validity(work.facts) + ".";
}

std::string WhyHeldBack(const Work& work) {
  const RenewalHistory history = ReadRenewalHistory(work.certificate.id);
  return "certificate [" + work.certificate.id + "] is due, but failed " +
         std::to_string(history.failures) + " times in a row, the last time at " +
         history.last_attempt + ", and is tried once a day; --force tries it now";
}

// What its services have now, when they were given anything.
std::string Handed(const Work& work) {
  return work.services.empty() ? "No service uses it.\n"
                               : Printable(Joined(work.services)) + " has its files.\n";
}

Reply NotRenewed(const Work& work, const OneRenewal& one) {
  Reply reply;
  const bool held_back = one.found == Prospect::kHeldBack;
  AddFacts(work, held_back ? "held-back" : "not-due", reply.document);
  if (held_back) {
    reply.failure = WhyHeldBack(work);
    return reply;
  }
  reply.text = WhyNotDue(work, one.found) + " With --force it is renewed all the same.\n";
  if (one.redeployment) reply.text += "An earlier renewal is handed on: " + Handed(work);
  return reply;
}

Reply NotIssued(const Work& work, const OneRenewal& one) {
  Reply reply;
  AddFacts(work, "failed", reply.document);
  const std::string before = "certificate [" + work.certificate.id + "] is not renewed: ";
  if (one.renewal.failure) {
    Explain(reply, *one.renewal.failure, work.facts.names, before);
  } else {
    reply.failure = before + WhyNotRenewable(work.certificate.folder);
  }
  return reply;
}

Reply Renewed(const Work& work) {
  Reply reply;
  AddFacts(work, "renewed", reply.document);
  reply.text = work.certificate.id + " is renewed: it is for " +
               Printable(Joined(work.facts.names)) + ", and " + Validity(work.facts) + ".\n" +
               Handed(work);
  return reply;
}

Reply ReplyOf(const Work& work, const OneRenewal& one) {
  if (one.found != Prospect::kRenewed) return NotRenewed(work, one);
  return one.renewal.renewed ? Renewed(work) : NotIssued(work, one);
}

// Only what this run deployed was reloaded by it.
void AddWarnings(const Work& work, const OneRenewal& one, Reply& reply) {
  if (one.redeployment) WarnOfReloads(work.certificate.id, work.services, reply);
}

// What came after the renewal comes first only when that went well.
void AddDeployment(const Work& work, const OneRenewal& one, Reply& reply) {
  if (!reply.failure.empty()) return;
  const std::string& id = work.certificate.id;
  if (one.redeployment && one.redeployment->failure) {
    reply.text.clear();
    Explain(reply, *one.redeployment->failure, work.services,
            one.renewal.renewed ? "certificate [" + id + "] is renewed, but not handed on: "
                                : "certificate [" + id + "] could not be handed on: ");
  } else if (one.web_frontend_failed) {
    reply.failure = "the web front-end could not be restarted with certificate [" + id +
                    "] and goes on with the old one; see the system log";
  }
}

Reply Run(const Arguments& arguments) {
  RequireRoot();
  Work work = Begin(arguments.operands[0]);
  const OneRenewal one = RenewOne(work.certificate, work.settings, arguments.Has("force"));
  work.facts = FactsOf(work.certificate, work.settings);
  Reply reply = ReplyOf(work, one);
  AddDeployment(work, one, reply);
  AddWarnings(work, one, reply);
  return reply;
}

}  // namespace

const Command kRenew = {"renew",
                        "ID",
                        1,
                        1,
                        {{"force", nullptr, false, "also when it is not due"}},
                        "Renew a certificate that is due, and deploy it",
                        Run};

}  // namespace kova::archive_cli
