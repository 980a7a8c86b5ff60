#include "platform/error.h"

#include <cerrno>
#include <cstring>

namespace {

struct Triple {
  int code = 0;
  const char* file = "";
  int line = 0;
};

Triple& Last() {
  thread_local Triple last;
  return last;
}

}  // namespace

int KLIBCErrGet() { return Last().code; }
const char* KLIBCErrorGetFile() { return Last().file; }
int KLIBCErrorGetLine() { return Last().line; }

namespace kova::platform {

void RecordError(int code, const char* file, int line) {
  // Where the program was built is of no use to who reads the log.
  const char* slash = std::strrchr(file, '/');
  Last() = {code, slash == nullptr ? file : slash + 1, line};
  errno = code;
}

}  // namespace kova::platform
