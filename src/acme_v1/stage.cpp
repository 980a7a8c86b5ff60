#include <exception>

#include "acme_v1/client_v1.h"
#include "base/debug.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "challenge/challenge.h"

namespace kova {
namespace {

constexpr char kTag[] = "client_v1";

void LogFailedPass(const std::string& reason) {
  DebugStep("Normal challenge failed, reason: %s", reason.c_str());
}

void LogFailedDns(const std::string& reason) {
  DebugStep("DNS challenge failed, reason: %s", reason.c_str());
}

}  // namespace

bool AcmeV1Client::DnsChallenge(const std::string& domain) {
  if (settings_.skip_dns01) return false;
  try {
    const std::shared_ptr<LeChallenge> challenge = ChallengeFactory("dns-01", domain, http_);
    DoChallenge(NewAuthz(domain), *challenge);
    DebugStep("DNS challenge success %s", domain.c_str());
    return true;
  } catch (const SLError& error) {
    LogFailedDns(error.message);
  } catch (const std::exception& error) {
    LogFailedDns(error.what());
  } catch (...) {
    LogFailedDns("unknow");
  }
  return false;
}

void AcmeV1Client::HttpChallenge(const std::string& domain) {
  Http01Challenge challenge;
  DoChallenge(NewAuthz(domain), challenge);
}

void AcmeV1Client::AuthorizeDomain(const std::string& domain, bool no_dns_fallback) {
  try {
    HttpChallenge(domain);
  } catch (...) {
    // What stopped http-01 is what counts, whatever came of dns-01.
    if (no_dns_fallback || !DnsChallenge(domain)) throw;
  }
  DebugStep("==> finish new-authz");
}

void AcmeV1Client::AuthorizeAll(const std::vector<std::string>& domains) {
  std::vector<std::string> unreached;
  for (const std::string& domain : domains) {
    DebugStep("strat to do new-authz for %s", domain.c_str());
    if (!FirstPass(domain)) {
      unreached.push_back(domain);
      continue;
    }
    DebugStep("finish to do new-authz for %s", domain.c_str());
  }
  if (!unreached.empty()) SecondPass(unreached);
}

// False when the name is to be tried again behind the router's port forwarding.
bool AcmeV1Client::FirstPass(const std::string& domain) {
  try {
    AuthorizeDomain(domain, false);
    return true;
  } catch (const SLError& error) {
    LogFailedPass(error.message);
    if (error.code != code::kRetryWithPortMap) throw;
    return false;
  } catch (const std::exception& error) {
    LogFailedPass(error.what());
    throw Error(code::kLocal, kTag, error.what());
  } catch (...) {
    LogFailedPass("Unknown");
    throw;
  }
}

// The router's ports are opened for this pass alone, and without them it makes no sense.
void AcmeV1Client::SecondPass(const std::vector<std::string>& domains) {
  ShowStage("", "asking the router to forward ports 80 and 443");
  // What did not open is not closed, on purpose: port 443 alone may stay granted until its lease
  // ends.
  if (!OpenRouterPorts()) throw Error(code::kConnection, kTag, "failed to open port 80.");
  try {
    for (const std::string& domain : domains) {
      DebugStep("strat to do new-authz for %s", domain.c_str());
      AuthorizeDomain(domain, true);
      DebugStep("finish to do new-authz for %s", domain.c_str());
    }
  } catch (...) {
    CloseRouterPorts();
    DebugStep("close port 80.");
    throw;
  }
  CloseRouterPorts();
}

}  // namespace kova
