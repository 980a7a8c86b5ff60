// What kova-archive obtain says when it has a certificate.
#pragma once

#include <string>

#include "archive_cli/command.h"
#include "archive_cli/obtain_request.h"
#include "base/renewal_settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova::archive_cli {

enum class Step { kEnter, kMakeDefault, kGive, kDone };

struct Obtained {
  ArchivedCertificate certificate;
  Step step = Step::kEnter;  // that is to be taken, or failed
  std::string moved_from;    // the certificate that had the service; empty: none
  ReloadScriptReport script;
};

// Four lines: where it is, what it is for, who uses it, when it is renewed; and one about the
// reload script when that was asked for.
Reply ObtainDone(const ObtainRequest& request, const Obtained& obtained,
                 const RenewalSettings& settings);

// It is there, but the step failed: why, and how to go on.
Reply ObtainCutShort(const ObtainRequest& request, const Obtained& obtained,
                     const std::string& why);

}  // namespace kova::archive_cli
