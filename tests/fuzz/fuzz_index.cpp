// The archive's index, which other programs edit too.
#include <cstdint>
#include <string>

#include "archive/service_object.h"
#include "base/json.h"
#include "host_files.h"
#include "property.h"

namespace {

using namespace kova::cert_archive;

bool IsFolderOfItsOwn(const std::string& folder, const Service& service) {
  const std::string parent =
      std::string("/usr/") + (service.is_package ? "local" : "kova") + "/etc/certificate/";
  return folder == parent + service.subscriber + "/" + service.name &&
         folder.find("/../") == std::string::npos &&
         !folder.starts_with("/usr/kova/etc/certificate/_archive/") && !folder.ends_with("/..") &&
         !folder.ends_with("/.") && folder.find('\0') == std::string::npos;
}

void CheckObject(const Json::Value& object) {
  if (!IsValidServiceObject(object)) return;
  const Service service = ServiceFrom(object);
  KOVA_REQUIRE(IsSameService(object, object));
  KOVA_REQUIRE(!service.StaysInItsFolder() || IsFolderOfItsOwn(service.Folder(), service));
}

// Each edit leaves the service listed as often as it says.
void CheckUpdates(const Json::Value& services, const Json::Value& object) {
  for (const ListUpdate update : {ListUpdate::kAppend, ListUpdate::kRemove, ListUpdate::kRefresh}) {
    Json::Value edited = services;
    UpdateServiceList(edited, object, update);
    KOVA_REQUIRE(edited.isArray());
    int listed = 0;
    for (const Json::Value& element : edited) listed += IsSameService(element, object) ? 1 : 0;
    KOVA_REQUIRE(listed <= 1);
    KOVA_REQUIRE(update != ListUpdate::kRemove || listed == 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Json::Value info;
  if (!kova::JsonFromText(text, info) || !info.isObject()) return 0;
  for (const std::string& id : info.getMemberNames()) {
    const Json::Value& services = kova::Member(info[id], "services");
    if (!services.isArray()) continue;
    (void)HasSystemDefault(services);
    for (const Json::Value& object : services) {
      CheckObject(object);
      if (IsValidServiceObject(object)) CheckUpdates(services, object);
    }
  }
  return 0;
}
