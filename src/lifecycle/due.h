// Which certificates are due.
#pragma once

#include <vector>

#include "base/renewal_settings.h"
#include "lifecycle/archived_certificate.h"

namespace kova {

struct DueCertificate {
  ArchivedCertificate certificate;
  bool to_renew = true;  // else only to deploy: an earlier run was killed before it had done that
};

// The certificates of the index that are due, in the order of their ids. What stands in the way of
// looking at one is logged, and that one left out. A move of files that an earlier run was killed
// in is finished first. With `renewalinfo` CAs are asked for their advice.
std::vector<DueCertificate> DueCertificates(const RenewalSettings& settings);

// What renew-all would make of a certificate now.
enum class Prospect {
  kNotDue,
  kRenewed,         // due and taken up
  kUnreadable,      // its cert.pem is no certificate, so it never becomes due
  kNoRecord,        // due; nothing says how it was obtained
  kUnusableRecord,  // due; its renewal record does not say it
  kOtherIssuer,     // due, and passed over: its issuer is not the one that is renewed without
                    // `renewanyissuer`
  kHeldBack,        // due; failed often, and was tried in the last day
};

// By the rules of DueCertificates for one certificate of the index; its CA is not asked.
[[nodiscard]] Prospect ProspectOf(const ArchivedCertificate& certificate,
                                  const RenewalSettings& settings);

// The same as a run of renew-all finds it, which asks its CA for advice as well.
[[nodiscard]] Prospect AdvisedProspectOf(const ArchivedCertificate& certificate,
                                         const RenewalSettings& settings);

// Whether runs of renew-all renew it at all, once it is due. Its CA is not asked.
[[nodiscard]] bool IsEverRenewed(const ArchivedCertificate& certificate,
                                 const RenewalSettings& settings);

}  // namespace kova
