#include "archive_cli/entries.h"

#include "archive/index.h"
#include "archive/paths.h"
#include "archive/service_object.h"
#include "base/json.h"

namespace kova::archive_cli {
namespace {

const Json::Value& ServicesOf(const Json::Value& info, const std::string& id) {
  const Json::Value& services = Member(Member(info, id.c_str()), "services");
  return services.isArray() ? services : Json::Value::nullSingleton();
}

void RequirePlain(const char* what, const std::string& name) {
  if (!cert_archive::IsPlainName(name)) {
    throw Failure{std::string(what) + " [" + name + "] is not a plain name"};
  }
}

}  // namespace

void RequirePlainId(const std::string& id) { RequirePlain("the id", id); }

void RequireEntry(const Json::Value& info, const std::string& id) {
  if (!Member(info, id.c_str()).isObject()) {
    throw Failure{"certificate [" + id + "] is not in the index"};
  }
}

Json::Value ReadIndexOrFail() {
  Json::Value info;
  Require(cert_archive::ReadIndexObject(info));
  return info;
}

Json::Value NamedService(const Arguments& arguments, bool is_package) {
  RequirePlain("the subscriber", arguments.Text("subscriber"));
  RequirePlain("the service", arguments.Text("service"));
  Json::Value service;
  service["subscriber"] = arguments.Text("subscriber");
  service["service"] = arguments.Text("service");
  service["isPkg"] = is_package;
  if (!cert_archive::ServiceFrom(service).StaysInItsFolder()) {
    throw Failure{"the subscriber [" + arguments.Text("subscriber") +
                  "] is the certificate archive itself"};
  }
  return service;
}

std::string ServiceTitle(const Json::Value& service) {
  return TextMember(service, "subscriber") + "/" + TextMember(service, "service");
}

Json::Value FindService(const Json::Value& info, const std::string& id,
                        const Json::Value& service) {
  for (const Json::Value& element : ServicesOf(info, id)) {
    if (cert_archive::IsSameService(element, service)) return element;
  }
  return {};
}

std::vector<std::string> CertificatesWith(const Json::Value& info, const Json::Value& service) {
  std::vector<std::string> ids;
  for (const std::string& id : info.getMemberNames()) {
    if (!FindService(info, id, service).isNull()) ids.push_back(id);
  }
  return ids;
}

std::vector<std::string> ServiceTitles(const Json::Value& info, const std::string& id) {
  std::vector<std::string> titles;
  for (const Json::Value& element : ServicesOf(info, id)) {
    if (cert_archive::IsSameService(element, element)) titles.push_back(ServiceTitle(element));
  }
  return titles;
}

Json::Value JsonArray(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) array.append(text);
  return array;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : ", ") + text;
  return joined;
}

}  // namespace kova::archive_cli
