#include "archive_cli/check_expiry.h"

#include <charconv>
#include <ctime>
#include <utility>

#include "archive/paths.h"
#include "archive/reload_mark.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "archive_cli/troubles.h"
#include "base/json.h"
#include "base/renewal_settings.h"

namespace kova::archive_cli {
namespace {

constexpr int kMostDays = 36500;

int ParseDays(const std::string& text) {
  int days = -1;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, days);
  if (parsed.ec != std::errc() || parsed.ptr != end || days < 0 || days > kMostDays) {
    throw UsageError{"--expiry takes a number of days, 0 to " + std::to_string(kMostDays)};
  }
  return days;
}

class Findings {
 public:
  Findings(int days, std::int64_t now) : days_(days), now_(now) {}

  [[nodiscard]] std::vector<std::string> Of(const Json::Value& info, const std::string& id) const {
    if (!cert_archive::IsPlainName(id) || !Member(info, id.c_str()).isObject()) {
      return {"is not a certificate of the index"};
    }
    std::vector<std::string> findings = {
        ExpiryFinding(cert_archive::CertificateFolder(id), days_, now_),
        RenewalFailure(RememberedRenewals(id, settings_))};
    std::erase(findings, "");
    for (std::string& finding :
         ReloadFailuresOf(cert_archive::ReloadFailures(id), ServiceTitles(info, id))) {
      findings.push_back(std::move(finding));
    }
    return findings;
  }

 private:
  RenewalSettings settings_ = RenewalSettings::Read();
  int days_;
  std::int64_t now_;
};

void Report(const std::string& id, const std::string& finding, Reply& reply) {
  reply.text += id + ": " + finding + "\n";
  Json::Value object;
  object["id"] = id;
  object["finding"] = finding;
  reply.document["findings"].append(object);
}

}  // namespace

std::string ExpiryFinding(const std::string& folder, int days, std::int64_t now) {
  const CertificateFacts facts = ReadFacts(folder + "/cert.pem", {false, days}, now);
  switch (facts.state) {
    case State::kUnreadable:
      return "its cert.pem cannot be read";
    case State::kExpired:
      return "ended at " + TimeText(facts.not_after);
    case State::kDue:
      return "ends at " + TimeText(facts.not_after);
    case State::kValid:
      break;
  }
  return {};
}

Reply CheckExpiry(const Arguments& arguments) {
  const int days = ParseDays(arguments.Text("expiry"));
  const Findings looked_for(days, std::time(nullptr));
  const Json::Value info = ReadIndexOrFail();
  Reply reply;
  reply.document["findings"] = Json::Value(Json::arrayValue);
  size_t count = 0;
  const std::vector<std::string> ids =
      arguments.operands.empty() ? info.getMemberNames() : arguments.operands;
  for (const std::string& id : ids) {
    const std::vector<std::string> findings = looked_for.Of(info, id);
    for (const std::string& finding : findings) Report(id, finding, reply);
    if (!findings.empty()) ++count;
  }
  if (count > 0) {
    reply.failure = std::to_string(count) + " of " + std::to_string(ids.size()) +
                    " certificates need attention";
  }
  return reply;
}

}  // namespace kova::archive_cli
