#include "platform/error.h"

#include <cerrno>
#include <cstring>

namespace {

thread_local int last_code = 0;
thread_local const char* last_file = "";
thread_local int last_line = 0;

}  // namespace

int KLIBCErrGet() { return last_code; }
const char* KLIBCErrorGetFile() { return last_file; }
int KLIBCErrorGetLine() { return last_line; }

namespace kova::platform {

void RecordError(int code, const char* file, int line) {
  // Where the program was built is of no use to who reads the log.
  const char* slash = std::strrchr(file, '/');
  last_code = code;
  last_file = slash == nullptr ? file : slash + 1;
  last_line = line;
  errno = code;
}

}  // namespace kova::platform
