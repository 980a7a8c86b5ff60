#include "acme_v1/acme_v1.h"

#include "base/sl_error.h"

namespace kova {

std::string IssueWithAcmeV1(const std::string& /*server*/,
                            const std::vector<std::string>& /*domains*/,
                            const std::string& /*email*/, const std::string& /*certificate_id*/) {
  throw Error(code::kProtocol, "client_v1", "ACME v1 is not supported");
}

void RevokeWithAcmeV1(const std::string& /*server*/, const std::string& /*account_folder*/,
                      const std::string& /*folder*/) {
  throw Error(code::kProtocol, "client_v1", "ACME v1 is not supported");
}

}  // namespace kova
