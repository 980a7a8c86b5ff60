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

// Places it. Throws SLError 104 (429), 102 (400) or 200.
Order NewOrder(Session& session, const std::vector<std::string>& names);

}  // namespace kova
