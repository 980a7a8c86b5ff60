// kova-archive obtain: new-cert, add, default and bind in one.

#include <ctime>

#include "archive/service_object.h"
#include "archive_cli/acme_front.h"
#include "archive_cli/changes.h"
#include "archive_cli/entries.h"
#include "archive_cli/obtain_reply.h"
#include "archive_cli/obtain_request.h"
#include "base/progress.h"
#include "lifecycle/failure.h"
#include "lifecycle/issue.h"
#include "lifecycle/renewal_job.h"
#include "platform/signals.h"

namespace kova::archive_cli {
namespace {

// Through the protocol that today's CAs speak.
constexpr char kVersion[] = "2";

ArchivedCertificate CertificateIn(const std::string& folder) {
  return ArchivedCertificate::OfId(folder.substr(folder.rfind('/') + 1));
}

std::optional<SLError> Issue(const ObtainRequest& request, const RenewalSettings& settings,
                             Obtained& obtained) {
  std::optional<SLError> failure = Capture([&] {
    obtained.certificate = CertificateIn(kova::Issue(kVersion, request.options, settings));
  });
  if (failure && settings.renew_failures) {
    LogFailure("obtain", Joined(request.options.names), *failure);
  }
  return failure;
}

// A certificate that the CA has issued is not lost sight of, even when a signal ends the run.
void EnterInIndex(const ObtainRequest& request, Obtained& obtained) {
  const platform::CleanupScope scope;
  ShowStage("", "entering the certificate in the archive's index");
  obtained.step = Step::kEnter;
  (void)AddToIndex(obtained.certificate.id, request.description);
}

// The reload script first, so that it runs with this deployment.
void HandOver(const ObtainRequest& request, const Json::Value& service, Obtained& obtained) {
  ShowStage("", "handing it to " + ServiceTitle(service));
  if (request.reload) {
    obtained.script = request.reload->PutInPlace(cert_archive::ServiceFrom(service));
  }
  obtained.moved_from = GiveService(obtained.certificate.id, service);
}

void TakeSteps(const ObtainRequest& request, const RenewalSettings& settings, Obtained& obtained) {
  EnterInIndex(request, obtained);
  // A revocation beside this run, which did not find it in the index, may have removed the job.
  AddRenewalJob(settings);
  platform::ThrowIfInterrupted();
  obtained.step = Step::kMakeDefault;
  if (request.becomes_default) SetDefault(obtained.certificate.id);
  obtained.step = Step::kGive;
  if (request.service) HandOver(request, *request.service, obtained);
  obtained.step = Step::kDone;
}

Reply Run(const Arguments& arguments) {
  const RenewalSettings settings = ReadSettings();
  const ObtainRequest request = ObtainRequestOf(arguments, settings);
  Obtained obtained;
  if (const std::optional<SLError> failure = Issue(request, settings, obtained)) {
    Reply reply;
    Explain(reply, *failure, request.options.names);
    return reply;
  }
  AddRenewalJob(settings);  // what becomes of it is in the reply
  try {
    TakeSteps(request, settings, obtained);
  } catch (const Failure& failure) {
    return ObtainCutShort(request, obtained, failure.message);
  }
  return ObtainDone(request, obtained, settings);
}

}  // namespace

const Command kObtain = {
    "obtain",
    "",
    0,
    0,
    {{"domain", "NAME[,NAME...]", true, "host names; may be given more than once", 'd'},
     {"mail", "MAIL", true, "e-mail address for the CA", 'm'},
     {"server", "URL", false, "directory of another CA than the settings'"},
     {"staging", nullptr, false, "the same CA's staging directory, for trials"},
     {"key-type", "T", false, "rsa2048, rsa3072, rsa4096, ec256 or ec384"},
     {"profile", "P", false, "one of the profiles that the CA offers"},
     {"preferred-chain", "CN", false, "issuer that the chain should end at"},
     {"desc", "TEXT", false, "keep a description with it"},
     {"default", nullptr, false, "make it the default certificate"},
     {"bind", "S/N", false, "give it to service N of component S"},
     {"owner", "U", false, "with --bind: the user who shall own the deployed files"},
     {"display-name", "D", false, "with --bind: the service's name for people"},
     {"reload", "SERVER", false, "with --bind: put its example of a reload script in place"}},
    "Obtain a certificate, enter it in the index and give it to a service",
    Run};

}  // namespace kova::archive_cli
