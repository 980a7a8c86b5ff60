// The result of a run, on standard output.
#pragma once

#include <string>

#include "base/log.h"

namespace kova {

// Writes `text` and flushes it at once: what is only found unwritable when the process ends is told
// to nobody. False when it could not be written, with errno; one line in the log has it all then.
bool WriteResult(Site site, const std::string& text);

}  // namespace kova
