// The platform's error triple: errno, source file and line of the last platform call that failed
// on this thread. It is only meaningful after a failure.
#pragma once

int KLIBCErrGet();
const char* KLIBCErrorGetFile();  // static storage; "" before the first failure
int KLIBCErrorGetLine();

namespace kova::platform {

// For the platform's own calls: remembers the failure and leaves errno = code.
void RecordError(int code, const char* file = __builtin_FILE(), int line = __builtin_LINE());

}  // namespace kova::platform
