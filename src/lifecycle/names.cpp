#include "lifecycle/names.h"

#include "base/debug.h"
#include "base/sl_error.h"
#include "lifecycle/renewal_files.h"

namespace kova {

std::vector<std::string> AnnounceDomains(const std::string& list, const std::string& server,
                                         const std::string& email,
                                         const std::function<void(const std::string&)>& check) {
  std::vector<std::string> domains = SplitDomainList(list);
  if (domains.empty()) throw Error(code::kNoDomain, "kova-letsencrypt", "no valid domain name");
  DebugStep("==== start to new cert ====");
  DebugStep("Server: %s", server.c_str());
  DebugStep("Email: %s", email.c_str());
  for (const std::string& domain : domains) {
    DebugStep("Domain: %s", domain.c_str());
    check(domain);
  }
  DebugStep("==========================");
  return domains;
}

}  // namespace kova
