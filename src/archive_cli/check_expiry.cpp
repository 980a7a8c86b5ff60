#include "archive_cli/check_expiry.h"

#include <charconv>
#include <ctime>

#include "archive/paths.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "base/json.h"

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

std::string FindingOf(const Json::Value& info, const std::string& id, int days, std::int64_t now) {
  if (!cert_archive::IsPlainName(id) || !Member(info, id.c_str()).isObject()) {
    return "is not a certificate of the index";
  }
  return ExpiryFinding(cert_archive::CertificateFolder(id), days, now);
}

void Report(const std::string& id, const std::string& finding, Reply& reply) {
  reply.text += id + ": " + finding + "\n";
  Json::Value object;
  object["id"] = id;
  object["finding"] = finding;
  reply.document["findings"].append(object);
}

}  // namespace

std::string ExpiryFinding(const std::string& folder, int days, std::int64_t now) {
  const CertificateFacts facts = ReadFacts(folder + "/cert.pem", days, now);
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
  const std::int64_t now = std::time(nullptr);
  const Json::Value info = ReadIndexOrFail();
  Reply reply;
  reply.document["findings"] = Json::Value(Json::arrayValue);
  size_t count = 0;
  const std::vector<std::string> ids =
      arguments.operands.empty() ? info.getMemberNames() : arguments.operands;
  for (const std::string& id : ids) {
    const std::string finding = FindingOf(info, id, days, now);
    if (finding.empty()) continue;
    Report(id, finding, reply);
    ++count;
  }
  if (count > 0) {
    reply.failure = std::to_string(count) + " of " + std::to_string(ids.size()) +
                    " certificates need attention";
  }
  return reply;
}

}  // namespace kova::archive_cli
