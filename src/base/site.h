// Where a message or an error comes from: a source-file tag and the line that names it.
#pragma once

namespace kova {

struct Site {
  // Implicit on purpose: a call such as LogError(kTag, ...) captures the caller's line.
  Site(const char* tag_, int line_ = __builtin_LINE()) : tag(tag_), line(line_) {}  // NOLINT

  const char* tag;  // static storage
  int line;
};

}  // namespace kova
