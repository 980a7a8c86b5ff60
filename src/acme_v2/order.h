// An order at the CA: the request for one certificate.
#pragma once

#include <string>
#include <vector>

namespace kova {

class Session;

struct Order {
  std::string url;  // empty when the CA did not say
  std::string finalize;
  std::vector<std::string> authorizations;  // in the CA's order
  std::vector<std::string> names;           // as asked for
};

// Places it. A profile that was chosen, or that the settings name, goes along when the directory
// lists it; otherwise the system log says so. So does the identifier of the certificate that the
// order replaces (renewal_info.h; empty for none), where the CA gives renewal information; when the
// CA refuses the order for it, it is placed once more without, and the system log says so. Throws
// SLError 104 (429), 102 (400) or 200.
Order NewOrder(Session& session, const std::vector<std::string>& names, const std::string& profile,
               const std::string& replaces);

// Throws SLError 102 (file "profile"), with those that there are, unless the directory lists it.
void RequireProfile(const Session& session, const std::string& profile);

}  // namespace kova
