#include "base/output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kova {

bool WriteResult(Site site, const std::string& text) {
  errno = 0;
  const bool written =
      std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
  if (written) return true;
  const int error = errno;
  LogError(site, "Failed to write to standard output. [%s]: [%s]", std::strerror(error),
           OnOneLine(text.substr(0, text.find_last_not_of('\n') + 1)).c_str());
  std::clearerr(stdout);
  errno = error;
  return false;
}

}  // namespace kova
