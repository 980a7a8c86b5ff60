// One service of the index: whether it is valid, where its files would go, and how it is compared.
#include <cstdint>
#include <string>

#include "archive/service_object.h"
#include "base/json.h"
#include "property.h"

namespace {

using namespace kova::cert_archive;

bool IsPlain(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

void CheckPaths(const Json::Value& object) {
  const Service service = ServiceFrom(object);
  KOVA_REQUIRE(!service.owner.empty());
  if (!service.StaysInItsFolder()) return;
  KOVA_REQUIRE(IsPlain(service.subscriber) && IsPlain(service.name));
  KOVA_REQUIRE(service.Folder().ends_with("/" + service.subscriber + "/" + service.name));
  KOVA_REQUIRE(service.ReloadScript().starts_with("/usr/"));
}

void CheckList(const Json::Value& object) {
  Json::Value entry(Json::objectValue);
  entry["services"] = Json::Value(Json::arrayValue);
  KOVA_REQUIRE(!Lists(entry, object));
  for (int times = 0; times < 2; ++times) {
    UpdateServiceList(entry["services"], object, ListUpdate::kAppend);
    KOVA_REQUIRE(entry["services"].size() == 1 && Lists(entry, object));
  }
  const bool is_default = object["subscriber"] == "system" && object["service"] == "default";
  KOVA_REQUIRE(HasSystemDefault(entry["services"]) == is_default);
  UpdateServiceList(entry["services"], object, ListUpdate::kRemove);
  KOVA_REQUIRE(entry["services"].empty());
  UpdateServiceList(entry["services"], object, ListUpdate::kRefresh);
  KOVA_REQUIRE(entry["services"].empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Json::Value object;
  if (!kova::JsonFromText(std::string(reinterpret_cast<const char*>(data), size), object)) return 0;
  (void)IsSameService(object, object);
  if (!IsValidServiceObject(object)) return 0;
  KOVA_REQUIRE(IsSameService(object, object));
  CheckPaths(object);
  CheckList(object);
  return 0;
}
