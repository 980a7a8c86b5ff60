#include "archive/service_object.h"

#include <algorithm>

#include "archive/paths.h"
#include "base/json.h"
#include "base/log.h"

namespace kova::cert_archive {
namespace {

struct MemberRule {
  const char* key;
  Json::ValueType type;
  bool required;
};

constexpr MemberRule kMemberRules[] = {
    {"display_name", Json::stringValue, true}, {"display_name_i18n", Json::stringValue, false},
    {"subscriber", Json::stringValue, true},   {"service", Json::stringValue, true},
    {"isPkg", Json::booleanValue, true},       {"owner", Json::stringValue, true},
};

bool Obeys(const Json::Value& object, const MemberRule& rule) {
  if (!HasMember(object, rule.key)) {
    if (rule.required) LogError(kTag, "Lack of necesary key. [%s]", rule.key);
    return !rule.required;
  }
  const Json::Value& member = object[rule.key];
  if (member.type() != rule.type) return false;
  return rule.type != Json::stringValue || !member.asString().empty();
}

bool NamesAService(const Json::Value& object) {
  return Member(object, "subscriber").isString() && Member(object, "service").isString();
}

}  // namespace

std::string Service::Folder() const {
  return std::string("/usr/") + (is_package ? "local" : "kova") + "/etc/certificate/" + subscriber +
         "/" + name;
}

std::string Service::ReloadScript() const {
  return std::string("/usr/") + (is_package ? "local/" : "") + "libexec/certificate.d/" +
         subscriber;
}

bool Service::StaysInItsFolder() const {
  const bool is_archive = !is_package && subscriber == kArchiveName;
  return IsPlainName(subscriber) && IsPlainName(name) && !is_archive;
}

bool IsValidServiceObject(const Json::Value& object) {
  for (const MemberRule& rule : kMemberRules) {
    if (!Obeys(object, rule)) return false;
  }
  return true;
}

Service ServiceFrom(const Json::Value& object) {
  return {TextMember(object, "subscriber"), TextMember(object, "service"),
          TextMember(object, "owner"), Member(object, "isPkg") == Json::Value(true)};
}

bool IsSameService(const Json::Value& left, const Json::Value& right) {
  return NamesAService(left) && NamesAService(right) && left["subscriber"] == right["subscriber"] &&
         left["service"] == right["service"];
}

bool Lists(const Json::Value& entry, const Json::Value& object) {
  const Json::Value& services = Member(entry, "services");
  return services.isArray() &&
         std::any_of(services.begin(), services.end(),
                     [&](const Json::Value& element) { return IsSameService(element, object); });
}

bool HasSystemDefault(const Json::Value& services) {
  if (!services.isArray()) return false;
  for (const Json::Value& element : services) {
    if (!IsValidServiceObject(element)) {
      LogError(kTag, "service object is error.");
      continue;
    }
    const Service service = ServiceFrom(element);
    if (service.subscriber == "system" && service.name == "default") return true;
  }
  return false;
}

void UpdateServiceList(Json::Value& services, const Json::Value& object, ListUpdate update) {
  if (!services.isArray()) services = Json::Value(Json::arrayValue);
  Json::Value kept(Json::arrayValue);
  bool was_listed = false;
  for (const Json::Value& element : services) {
    const bool same = IsSameService(element, object);
    was_listed = was_listed || same;
    if (!same && NamesAService(element)) kept.append(element);
  }
  const bool append =
      update == ListUpdate::kAppend || (update == ListUpdate::kRefresh && was_listed);
  if (append) kept.append(object);
  services = kept;
}

}  // namespace kova::cert_archive
