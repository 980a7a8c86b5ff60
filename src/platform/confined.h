// Work that listens to strangers, done in a child process that can do nothing else.
//
// The child is nobody (no user's rights, no way back to any), sees an empty root folder, holds no
// descriptor of ours, and may neither write files nor start programs. Its memory is bounded.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/watch_child.h"

namespace kova::platform {

// What `work` returned in such a child. Nothing when it did not come within the limits, or the
// child crashed or could not be confined (one syslog line). The text is a stranger's word.
std::optional<std::string> RunConfined(const ChildLimits& limits,
                                       const std::function<std::string()>& work);

}  // namespace kova::platform
