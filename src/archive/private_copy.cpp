#include "archive/private_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/fd.h"
#include "platform/process.h"
#include "platform/scoped_umask.h"

namespace kova::cert_archive {

int CopyPrivately(const std::string& source, const std::string& copy) {
  const ScopedUmask only_root(kPrivateUmask);
  return KLIBCExec("/bin/cp", {"-f", source, copy});
}

bool HandOver(const std::string& file, uid_t uid, gid_t gid) {
  const platform::Fd opened(open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  return opened && fchmod(opened.Get(), S_IRUSR) == 0 && fchown(opened.Get(), uid, gid) == 0 &&
         fsync(opened.Get()) == 0;
}

}  // namespace kova::cert_archive
