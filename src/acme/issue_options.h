// The choices of one issuance, travelling as one value. Each kind of caller fills it in one place:
// from the command line and the settings, or from a renewal record.
#pragma once

#include <string>
#include <vector>

#include "crypto/certificate_key.h"

namespace kova {

struct IssueOptions {
  std::string server;              // directory URL
  std::vector<std::string> names;  // in request order, duplicates kept; the first is the subject's
  std::string contact;             // e-mail address, without "mailto:"
  std::string certificate_id;      // whose folder takes the certificate; empty for a new one

  KeyType key_type = KeyType::kRsa2048;  // of the certificate's key
  bool keeps_key_type = false;           // chosen for this certificate: its renewals keep it

  // Chosen for this certificate, and kept for its renewals; the settings' when empty.
  std::string profile{};          // one of those that the CA's directory lists
  std::string preferred_chain{};  // common name of the issuer of the chain's topmost certificate
  bool requires_profile = false;  // no order without it; a renewal goes out all the same
};

}  // namespace kova
