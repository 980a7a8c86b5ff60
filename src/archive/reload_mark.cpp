#include "archive/reload_mark.h"

#include <unistd.h>

#include "archive/certificate_lock.h"
#include "archive/paths.h"
#include "base/json.h"
#include "base/log.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kMode = 0600;

std::string PathOf(const std::string& id) { return CertificateFolder(id) + "/reload_failed"; }

void Write(const std::string& path, const Json::Value& marks) {
  if (marks.empty()) {
    unlink(path.c_str());
    return;
  }
  const int error = platform::ReplaceFile(path, JsonStyledText(marks), kMode);
  if (error != 0) LogError(kTag, "Failed to write [%s] [%d]", path.c_str(), error);
}

}  // namespace

void NoteReload(const std::string& id, const Service& service, int status) {
  const std::string path = PathOf(id);
  if (status == 0 && !KLIBCFileExist(path)) return;
  if (status != 0) {
    LogWarning(kTag, "The reload script [%s][%s] ended with status %d.",
               service.ReloadScript().c_str(), service.name.c_str(), status);
  }
  const CertificateLock lock(id);
  if (!lock.Held()) return;
  Json::Value marks = ReloadFailures(id);
  const std::string title = service.subscriber + "/" + service.name;
  marks.removeMember(title);
  if (status != 0) marks[title] = status;
  Write(path, marks);
}

Json::Value ReloadFailures(const std::string& id) {
  Json::Value document;
  const bool usable = JsonFromFile(PathOf(id), document) && document.isObject();
  Json::Value marks(Json::objectValue);
  if (!usable) return marks;
  for (const std::string& title : document.getMemberNames()) {
    if (document[title].isInt()) marks[title] = document[title];
  }
  return marks;
}

}  // namespace kova::cert_archive
