#include "platform/portmap_record.h"

#include <json/value.h>
#include <json/writer.h>

#include <cerrno>

#include "platform/error.h"
#include "platform/file_writer.h"
#include "platform/files.h"

namespace kova::platform {
namespace {

constexpr mode_t kMode = 0644;
constexpr int kLockSeconds = 10;
constexpr char kBlanks[] = " \t\r\n";

// The lock is on the record itself; whoever waits for it notices that the file was replaced.
class RecordLock {
 public:
  RecordLock()
      : error_(KLIBCFileLockTimeByFile(kPortmapRecordPath, 1, kLockSeconds, &handle_) == 0
                   ? 0
                   : KLIBCErrGet()) {}
  ~RecordLock() {
    if (handle_ >= 0) KLIBCFileUnlockByFile(handle_);
  }
  RecordLock(const RecordLock&) = delete;
  RecordLock& operator=(const RecordLock&) = delete;
  [[nodiscard]] int Error() const { return error_; }

 private:
  int handle_ = -1;
  int error_;
};

// A blank file is an empty record: locking it may just have created it.
int Read(Json::Value& sets) {
  std::string text;
  if (!ReadWholeFile(kPortmapRecordPath, text)) return errno;
  sets = Json::Value(Json::objectValue);
  if (text.find_first_not_of(kBlanks) == std::string::npos) return 0;
  return ParseJson(text, sets) && sets.isObject() ? 0 : EINVAL;
}

Json::Value ToJson(std::span<const KOVA_PORTMAP_RULE> rules) {
  Json::Value list(Json::arrayValue);
  for (const KOVA_PORTMAP_RULE& rule : rules) {
    Json::Value entry(Json::objectValue);
    entry["router_port"] = rule.router_port;
    entry["device_port"] = rule.device_port;
    list.append(entry);
  }
  return list;
}

int Write(const Json::Value& sets) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  return ReplaceFile(kPortmapRecordPath, Json::writeString(builder, sets) + "\n", kMode);
}

}  // namespace

std::vector<int> RecordedPorts(const std::string& name) {
  std::vector<int> ports;
  Json::Value sets;
  if (Read(sets) != 0 || !sets[name].isArray()) return ports;
  for (const Json::Value& rule : sets[name]) {
    if (rule.isObject() && rule["router_port"].isInt())
      ports.push_back(rule["router_port"].asInt());
  }
  return ports;
}

int StoreRuleSet(const std::string& name, std::span<const KOVA_PORTMAP_RULE> rules) {
  if (rules.empty() && !KLIBCFileExist(kPortmapRecordPath)) return 0;
  const RecordLock lock;
  if (lock.Error() != 0) return lock.Error();
  Json::Value sets;
  if (const int error = Read(sets); error != 0) return error;
  if (rules.empty() && !sets.isMember(name)) return 0;
  if (rules.empty()) {
    sets.removeMember(name);
  } else {
    sets[name] = ToJson(rules);
  }
  return Write(sets);
}

}  // namespace kova::platform
