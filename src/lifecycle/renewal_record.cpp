#include "lifecycle/renewal_record.h"

#include "base/json.h"
#include "base/log.h"

namespace kova {
namespace {

constexpr char kTag[] = "kova-letsencrypt";

}  // namespace

std::string RenewalRecordPath(const std::string& folder) { return folder + "/renew.json"; }

std::optional<RenewalRecord> ReadRenewalRecord(const std::string& folder) {
  Json::Value document;
  if (!JsonFromFile(RenewalRecordPath(folder), document) || !document.isObject()) {
    LogError(kTag, "renew info is not json. [%s]", folder.c_str());
    return std::nullopt;
  }
  if (!Member(document, "server").isString() || !HasMember(document, "domains") ||
      !Member(document, "account").isString() || !HasMember(document, "version")) {
    LogIncompleteRecord(folder);
    return std::nullopt;
  }
  RenewalRecord record;
  record.server = TextMember(document, "server");
  if (const Json::Value& domains = Member(document, "domains"); domains.isString()) {
    record.domains = domains.asString();
  }
  record.account = TextMember(document, "account");
  const Json::Value& version = Member(document, "version");
  record.version = version.isInt() ? version.asInt() : 0;
  return record;
}

void LogIncompleteRecord(const std::string& folder) {
  LogError(kTag, "renew info contain info not enoungh. [%s]", folder.c_str());
}

void LogWrongVersion(const std::string& folder) {
  LogError(kTag, "renew version seems to be wrong. [%s]", folder.c_str());
}

}  // namespace kova
