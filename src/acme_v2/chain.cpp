#include <vector>

#include "acme/reply.h"
#include "acme_v2/issue.h"
#include "base/debug.h"
#include "base/json.h"
#include "base/log.h"
#include "base/sl_error.h"
#include "crypto/certificate.h"
#include "net/headers.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v2";
constexpr size_t kMostAlternates = 16;

bool IsTopIssuer(const std::string& chain_pem, const std::string& common_name) {
  const std::vector<Certificate> chain = Certificate::ChainFromText(chain_pem);
  return !chain.empty() && chain.back().IssuerCommonName() == common_name;
}

// The alternate, or an empty text: one that cannot be had is no failure.
std::string Alternate(Session& session, const std::string& url) {
  try {
    const HttpResponse response = session.PostAsGet(url);
    if (response.status == 200) return response.body;
  } catch (const SLError&) {
    DebugStep("Failed to download the alternate chain %s", url.c_str());
  }
  return {};
}

std::string PreferredChain(Session& session, const HttpResponse& standard,
                           const std::string& preferred) {
  if (preferred.empty() || IsTopIssuer(standard.body, preferred)) return standard.body;
  std::vector<std::string> urls = LinkUrls(standard, "alternate");
  if (urls.size() > kMostAlternates) urls.resize(kMostAlternates);
  for (const std::string& url : urls) {
    std::string chain = Alternate(session, url);
    if (IsTopIssuer(chain, preferred)) return chain;
  }
  LogError(kTag, "No chain is issued by [%s], the usual one is taken.", preferred.c_str());
  return standard.body;
}

}  // namespace

std::string DownloadChain(Session& session, const Json::Value& order,
                          const std::string& preferred) {
  // An order without a certificate makes an empty URL, whose download fails.
  const std::string url =
      HasMember(order, "certificate") ? RequiredText(kTag, order, "certificate") : std::string();
  const HttpResponse response = session.PostAsGet(url);
  if (response.status != 200) {
    LogError(kTag, "Failed to download cert with %s [%ld]", JsonToString(order).c_str(),
             response.status);
    throw Error(code::kProtocol, kTag, "new-cert: Unexpect httpcode. (download cert)");
  }
  std::string chain = PreferredChain(session, response, preferred);
  DebugStep("get issuer-cert");
  DebugDetail("%s", chain.c_str());
  return chain;
}

}  // namespace kova
