#include "archive_cli/obtain_reply.h"

#include <ctime>
#include <optional>

#include "archive/service_object.h"
#include "archive_cli/acme_front.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "archive_cli/text.h"
#include "archive_cli/troubles.h"
#include "base/files.h"
#include "base/json.h"
#include "crypto/certificate.h"
#include "lifecycle/due.h"
#include "lifecycle/renewal_schedule.h"

namespace kova::archive_cli {
namespace {

std::string CertificatePath(const Obtained& obtained) {
  return obtained.certificate.folder + "/cert.pem";
}

CertificateFacts FactsOf(const Obtained& obtained, const RenewalSettings& settings) {
  return ReadFacts(CertificatePath(obtained), DueRule::Of(settings), std::time(nullptr));
}

// When it is due; none when renew-all never renews it.
std::optional<std::int64_t> DueMoment(const Obtained& obtained, const RenewalSettings& settings) {
  if (!IsEverRenewed(obtained.certificate, settings)) return std::nullopt;
  const std::string path = CertificatePath(obtained);
  const std::optional<Lifetime> lifetime = LifetimeOf(Certificate::FromFile(path), path);
  if (!lifetime) return std::nullopt;
  return DueFrom(*lifetime, DueRule::Of(settings));
}

std::string WhereItIs(const ObtainRequest& request, const Obtained& obtained) {
  return obtained.certificate.id +
         (request.becomes_default ? " is the default certificate now, in " : " is in ") +
         obtained.certificate.folder + ".\n";
}

// The issuer that the chain ends at.
std::string TopIssuer(const Obtained& obtained) {
  const std::vector<Certificate> chain =
      Certificate::ChainFromText(ReadTextFile(obtained.certificate.folder + "/fullchain.pem"));
  return chain.empty() ? std::string() : chain.back().IssuerCommonName();
}

// Strangers write what is in a certificate: it must not steer a terminal.
std::string WhatItIsFor(const ObtainRequest& request, const CertificateFacts& facts,
                        const std::string& top_issuer) {
  std::string line = "It is for " + Joined(facts.names) + ", issued by " + facts.issuer + " and " +
                     Validity(facts) + ".";
  const std::string& preferred = request.options.preferred_chain;
  if (!preferred.empty() && preferred != top_issuer) {
    line +=
        " Its chain ends at " + top_issuer + ": the CA offers none that ends at " + preferred + ".";
  }
  if (request.is_staging) line += " Browsers do not trust it: it is for trials.";
  return Printable(line) + "\n";
}

std::string ServiceFolder(const ObtainRequest& request) {
  return cert_archive::ServiceFrom(*request.service).Folder();
}

std::string WhoUsesIt(const ObtainRequest& request, const Obtained& obtained) {
  if (!request.service) {
    return "No service uses it yet: kova-archive bind " + obtained.certificate.id +
           " gives it to one.\n";
  }
  std::string line = ServiceTitle(*request.service) + " uses it, from " + ServiceFolder(request);
  if (!obtained.moved_from.empty()) line += ", in the place of " + Printable(obtained.moved_from);
  return line + ".\n";
}

// "renew-all runs daily at 04:17 (/etc/cron.d/kova-letsencrypt)".
std::string RunsOf(const RenewalSchedule& schedule) {
  if (schedule.period == "daily") return " daily at " + schedule.moment;
  if (schedule.period == "weekly") return " every " + schedule.moment;
  if (schedule.period == "monthly") return " every month, on the " + schedule.moment;
  return {};
}

std::string WhenItIsRenewed(const std::optional<std::int64_t>& due,
                            const RenewalSchedule& schedule) {
  if (!due) {
    return "renew-all does not renew it: it is not from Let's Encrypt, and the setting "
           "renewanyissuer is off.\n";
  }
  std::string line = "It is renewed from " + DateText(*due) + " on";
  if (!schedule.starter.empty()) {
    line += ": " + schedule.starter + " starts renew-all" + RunsOf(schedule);
  }
  if (!schedule.is_started)
    line += ", but nothing on this host does so now: see kova-archive check --host";
  return line + ".\n";
}

Json::Value OrNull(const std::string& text) {
  return text.empty() ? Json::Value() : Json::Value(text);
}

Json::Value RenewalDocument(const std::optional<std::int64_t>& due,
                            const RenewalSchedule& schedule) {
  Json::Value document(Json::objectValue);
  document["due_from"] = due ? Json::Value(TimeText(*due)) : Json::Value();
  document["is_started"] = schedule.is_started;
  document["starter"] = OrNull(schedule.starter);
  document["period"] = OrNull(schedule.period);
  document["moment"] = OrNull(schedule.moment);
  return document;
}

// What is there in any case.
void AddCertificate(const ObtainRequest& request, const Obtained& obtained, Json::Value& document) {
  document["id"] = obtained.certificate.id;
  document["folder"] = obtained.certificate.folder;
  document["server"] = request.options.server;
  document["default"] = request.becomes_default && obtained.step > Step::kMakeDefault;
  const bool is_bound = request.service && obtained.step > Step::kGive;
  document["service"] = is_bound ? Json::Value(ServiceTitle(*request.service)) : Json::Value();
  document["service_folder"] = is_bound ? Json::Value(ServiceFolder(request)) : Json::Value();
  document["moved_from"] = OrNull(obtained.moved_from);
}

void AddFacts(const CertificateFacts& facts, Json::Value& document) {
  document["names"] = JsonArray(facts.names);
  document["issuer"] = facts.issuer;
  document["not_after"] = TimeText(facts.not_after);
}

// A word as a shell takes it.
std::string Quoted(const std::string& word) {
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

std::string AddCommand(const ObtainRequest& request, const Obtained& obtained) {
  std::string command = "kova-archive add " + obtained.certificate.id;
  if (request.description) command += " --desc " + Quoted(*request.description);
  return command;
}

std::string BindCommand(const Obtained& obtained, const Json::Value& service) {
  return "kova-archive bind " + obtained.certificate.id + " --subscriber " +
         Quoted(TextMember(service, "subscriber")) + " --service " +
         Quoted(TextMember(service, "service")) + " --owner " +
         Quoted(TextMember(service, "owner")) + " --display-name " +
         Quoted(TextMember(service, "display_name"));
}

std::string ReloadOption(const ObtainRequest& request) {
  return request.reload ? " --reload " + request.reload->Server() : std::string();
}

// What is still to be done, the failed step first.
std::string RestOf(const ObtainRequest& request, const Obtained& obtained) {
  std::vector<std::string> commands;
  if (obtained.step == Step::kEnter) commands.push_back(AddCommand(request, obtained));
  if (obtained.step <= Step::kMakeDefault && request.becomes_default) {
    commands.push_back("kova-archive default " + obtained.certificate.id);
  }
  if (request.service) {
    commands.push_back(BindCommand(obtained, *request.service) + ReloadOption(request));
  }
  std::string text;
  for (const std::string& command : commands) text += (text.empty() ? "" : " && ") + command;
  return text;
}

std::string WhatFailed(const ObtainRequest& request, Step step) {
  switch (step) {
    case Step::kEnter:
      return "could not be entered in the index";
    case Step::kMakeDefault:
      return "could not be made the default one";
    case Step::kGive:
    case Step::kDone:
      break;
  }
  return "could not be given to " + ServiceTitle(*request.service);
}

}  // namespace

Reply ObtainDone(const ObtainRequest& request, const Obtained& obtained,
                 const RenewalSettings& settings) {
  const CertificateFacts facts = FactsOf(obtained, settings);
  const std::string top_issuer = TopIssuer(obtained);
  const std::optional<std::int64_t> due = DueMoment(obtained, settings);
  const RenewalSchedule schedule = ReadRenewalSchedule();
  Reply reply;
  reply.text = WhereItIs(request, obtained) + WhatItIsFor(request, facts, top_issuer) +
               WhoUsesIt(request, obtained) + WhenItIsRenewed(due, schedule);
  AddCertificate(request, obtained, reply.document);
  AddFacts(facts, reply.document);
  reply.document["top_issuer"] = top_issuer;
  reply.document["renewal"] = RenewalDocument(due, schedule);
  obtained.script.AddTo(reply);
  if (request.service) {
    WarnOfReloads(obtained.certificate.id, {ServiceTitle(*request.service)}, reply);
  }
  return reply;
}

Reply ObtainCutShort(const ObtainRequest& request, const Obtained& obtained,
                     const std::string& why) {
  Reply reply;
  reply.failure = "the certificate is there, in " + obtained.certificate.folder + ", but it " +
                  WhatFailed(request, obtained.step) + ": " + why +
                  ". To go on: " + RestOf(request, obtained);
  AddCertificate(request, obtained, reply.document);
  return reply;
}

}  // namespace kova::archive_cli
