#include "lifecycle/issue.h"

#include <vector>

#include "acme_v2/client_v2.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/sl_error.h"
#include "challenge/vendor_zone.h"
#include "lifecycle/names.h"
#include "lifecycle/failure.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

// The settings' `orderattempts`: how many failed attempts in a row may leave all challenge types
// where they were (a refused order, a challenge that could not be set up, a failed finalize).
// Without that key such attempts are repeated without bound and without a wait.
class AttemptBound {
 public:
  explicit AttemptBound(int bound) : bound_(bound) {}

  // True when another attempt may be made. Waits as the CA asks between two such attempts.
  bool Continue(const AcmeV2Client& client, bool used_up_a_type) {
    if (used_up_a_type) {
      in_a_row_ = 0;
      return true;
    }
    if (bound_ < 1) return true;
    if (++in_a_row_ >= bound_) return false;
    ShowStage("", "waiting before the next attempt");
    WaitVisibly(client.RetryDelay());
    return true;
  }

 private:
  int bound_;  // 0: none
  int in_a_row_ = 0;
};

// A wildcard can only be proved by dns-01, which serves the vendor's zone alone.
void RequireProvable(const std::string& domain) {
  if (domain.front() != '*' || IsKovaDdnsHost(domain.substr(2))) return;
  LogError(kTag, "Only Kova ddns suppport wildcard function");
  throw SLError(code::kNotKovaDdns, kTag, __LINE__, "%s is not Kova ddns", domain.c_str());
}

// A line feed at the end would break the line of the system log.
std::string OneLine(std::string text) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

void LogFailedAttempt(const std::string& reason) {
  LogError(kTag, "Failed to do new authorization, may retry with another type. [%s]",
           reason.c_str());
}

// One order after the other until one gives a certificate or no challenge type is left.
std::string IssueWithAnyType(AcmeV2Client& client, const std::vector<std::string>& domains,
                             const std::string& certificate_id, int order_attempts) {
  AttemptBound bound(order_attempts);
  int last_code = code::kRefused;
  while (client.HasChallengeTypes()) {
    const size_t types = client.ChallengeTypeCount();
    try {
      client.NewOrder(domains);
      client.AuthorizeOrder();
      return client.NewCertificate(domains, certificate_id);
    } catch (const SLError& error) {
      LogFailedAttempt(OneLine(ErrorToJson(error)));
      last_code = error.code;
    } catch (const std::exception& error) {
      LogFailedAttempt(error.what());
    }
    if (!bound.Continue(client, client.ChallengeTypeCount() < types)) break;
  }
  throw Error(last_code, kTag, "Failed to new certificate.");
}

}  // namespace

std::string IssueWithAcmeV2(const std::string& server, const std::string& domains_text,
                            const std::string& email, const std::string& certificate_id,
                            const Settings& settings) {
  const std::vector<std::string> domains =
      AnnounceDomains(domains_text, server, email, RequireProvable);
  AcmeV2Client client(server, settings);
  ShowStage("", "contacting " + server);
  client.SetupDirectory();
  client.NewNonce();
  client.SetupAccount(email);
  return IssueWithAnyType(client, domains, certificate_id, settings.order_attempts);
}

}  // namespace kova
