#include "acme/renewal_record.h"

#include "base/files.h"
#include "base/json.h"

namespace kova {
namespace {

constexpr mode_t kMode = 0400;
constexpr std::array kMembers = {"server", "domains", "account", "version"};

void ReadChoices(const Json::Value& document, RenewalRecord& record) {
  if (HasMember(document, "key_type")) record.key_type = TextMember(document, "key_type");
  record.profile = TextMember(document, "profile");
  record.preferred_chain = TextMember(document, "preferred_chain");
  for (const char* name : {"profile", "preferred_chain"}) {
    if (HasMember(document, name) && !Member(document, name).isString()) record.no_text = name;
  }
}

}  // namespace

std::string RenewalRecordPath(const std::string& folder) { return folder + "/renew.json"; }

RecordProblem ReadRenewalRecord(const std::string& folder, RenewalRecord& record) {
  record = RenewalRecord();
  Json::Value document;
  if (!JsonFromFile(RenewalRecordPath(folder), document) || !document.isObject()) {
    return RecordProblem::kNotJson;
  }
  for (const char* name : kMembers) {
    if (!HasMember(document, name)) return RecordProblem::kIncomplete;
  }
  record.server = TextMember(document, "server");
  record.domains = TextMember(document, "domains");
  record.account = TextMember(document, "account");
  const Json::Value& version = Member(document, "version");
  record.version = version.isInt() ? version.asInt() : 0;
  ReadChoices(document, record);
  return RecordProblem::kNone;
}

void WriteRenewalRecord(const std::string& folder, const RenewalRecord& record) {
  Json::Value document(Json::objectValue);
  document["version"] = record.version;
  document["server"] = record.server;
  document["account"] = record.account;
  document["domains"] = record.domains;
  if (record.key_type) document["key_type"] = *record.key_type;
  if (!record.profile.empty()) document["profile"] = record.profile;
  if (!record.preferred_chain.empty()) document["preferred_chain"] = record.preferred_chain;
  WriteTextFile(RenewalRecordPath(folder), JsonStyledText(document), kMode);
}

}  // namespace kova
