#include "archive/services.h"

#include "archive/index.h"
#include "archive/integrity.h"
#include "base/json.h"
#include "self_signed/log_tag.h"

namespace kova::cert_archive {

bool GetServices(const std::string& id, Json::Value& services) {
  Json::Value info;
  if (!IsUsable(id)) {
    LogBrokenIndex(kTag);
    return false;
  }
  if (!ReadIndex(info)) return false;
  const Json::Value& listed = Member(Member(info, id.c_str()), "services");
  if (!listed.isArray()) {
    LogBrokenIndex(kTag);
    return false;
  }
  services = listed;
  return true;
}

}  // namespace kova::cert_archive
