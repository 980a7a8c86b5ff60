#include "archive_cli/entries.h"

#include "archive/index.h"
#include "archive/paths.h"
#include "archive/service_object.h"
#include "archive_cli/text.h"
#include "base/json.h"

namespace kova::archive_cli {
namespace {

const Json::Value& ServicesOf(const Json::Value& info, const std::string& id) {
  const Json::Value& services = Member(Member(info, id.c_str()), "services");
  return services.isArray() ? services : Json::Value::nullSingleton();
}

void RequirePlain(const char* what, const std::string& name) {
  if (!IsWriting(name)) {
    throw Failure{std::string(what) + " [" + name +
                  "] holds a control character or bytes that are no UTF-8"};
  }
  if (!cert_archive::IsPlainName(name)) {
    throw Failure{std::string(what) + " [" + name + "] is not a plain name"};
  }
}

// What the service's folder is built in and kept in while it is replaced would be the other's own.
bool IsInTheWay(const std::string& left, const std::string& right) {
  const auto is = [](const std::string& name, const std::string& base, const char* end) {
    return name == base + end;
  };
  return is(left, right, ".bak") || is(left, right, ".temp") || is(right, left, ".bak") ||
         is(right, left, ".temp");
}

}  // namespace

void RequireOwnFolder(const Json::Value& info, const Json::Value& service) {
  for (const std::string& id : info.getMemberNames()) {
    for (const Json::Value& element : ServicesOf(info, id)) {
      if (TextMember(element, "subscriber") != TextMember(service, "subscriber") ||
          !IsInTheWay(TextMember(element, "service"), TextMember(service, "service"))) {
        continue;
      }
      throw Failure{"the service [" + TextMember(service, "service") + "] cannot stand beside [" +
                    TextMember(element, "service") + "]: their folders would destroy each other"};
    }
  }
}

std::string IdOf(const std::string& id_or_folder) {
  const std::string root = std::string(cert_archive::kArchiveRoot) + "/";
  if (!id_or_folder.starts_with(root)) return id_or_folder;
  std::string id = id_or_folder.substr(root.size());
  if (id.ends_with("/")) id.pop_back();
  return id;
}

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
