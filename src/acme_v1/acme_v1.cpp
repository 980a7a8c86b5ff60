#include "acme_v1/acme_v1.h"

#include "acme_v1/client_v1.h"
#include "base/debug.h"

namespace kova {

std::string IssueWithAcmeV1(const std::string& server, const std::vector<std::string>& domains,
                            const std::string& email, const std::string& certificate_id) {
  AcmeV1Client client(server);
  client.FetchDirectory();
  client.UseOrRegister(email);
  client.AuthorizeAll(domains);
  return client.NewCert(domains, certificate_id);
}

void RevokeWithAcmeV1(const std::string& server, const std::string& account_folder,
                      const std::string& folder) {
  AcmeV1Client client(server);
  DebugStep("revoke with v1. [%s].", folder.c_str());
  client.FetchDirectory();
  client.LoadAccountKey(account_folder);
  client.Revoke(folder);
}

}  // namespace kova
