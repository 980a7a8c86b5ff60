// The choices of one issuance, travelling as one value. Each kind of caller fills it in one place:
// from the command line and the settings, or from a renewal record. The certificate's key type, the
// CA's profile and the preferred chain will join it, absent unless chosen.
#pragma once

#include <string>
#include <vector>

namespace kova {

struct IssueOptions {
  std::string server;              // directory URL
  std::vector<std::string> names;  // in request order, duplicates kept; the first is the subject's
  std::string contact;             // e-mail address, without "mailto:"
  std::string certificate_id;      // whose folder takes the certificate; empty for a new one
};

}  // namespace kova
