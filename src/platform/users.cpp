#include <pwd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/error.h"
#include "platform/service.h"

int KOVAUserGetUGID(const std::string& name, uid_t* uid, gid_t* gid) {
  constexpr size_t kLargestRecord = 1 << 20;
  if (name.find('\0') != std::string::npos) {  // the C library would look up what is before it
    kova::platform::RecordError(ENOENT);
    return -1;
  }
  passwd record{};
  passwd* found = nullptr;
  std::vector<char> buffer(1024);
  int error = 0;
  while ((error = getpwnam_r(name.c_str(), &record, buffer.data(), buffer.size(), &found)) ==
             ERANGE &&
         buffer.size() < kLargestRecord) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) {
    kova::platform::RecordError(error != 0 ? error : ENOENT);
    return -1;
  }
  *uid = record.pw_uid;
  *gid = record.pw_gid;
  return 0;
}
