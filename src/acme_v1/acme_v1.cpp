#include "acme_v1/acme_v1.h"

#include "acme_v1/client_v1.h"
#include "base/debug.h"

namespace kova {

std::string IssueWithAcmeV1(const IssueOptions& options, const Settings& settings) {
  AcmeV1Client client(options.server, settings);
  client.FetchDirectory();
  client.UseOrRegister(options.contact);
  client.AuthorizeAll(options.names);
  return client.NewCert(options.names, options.certificate_id, options.key_type);
}

void RevokeWithAcmeV1(const std::string& server, const std::string& account_folder,
                      const std::string& folder, const Settings& settings) {
  AcmeV1Client client(server, settings);
  DebugStep("revoke with v1. [%s].", folder.c_str());
  client.FetchDirectory();
  client.LoadAccountKey(account_folder);
  client.Revoke(folder);
}

}  // namespace kova
