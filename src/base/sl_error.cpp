#include "base/sl_error.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kova {

SLError::SLError(int code_, std::string message_, std::string file_, int line_)
    : code(code_), message(std::move(message_)), file(std::move(file_)), line(line_) {}

SLError::SLError(int code_, const char* file_, int line_, const char* format, ...)
    : code(code_), file(file_), line(line_) {
  std::array<char, 512> buffer{};
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer.data(), buffer.size(), format, args);
  va_end(args);
  message = buffer.data();
}

SLError SLError::FromServerText(int code, Site site, const std::string& text) {
  return {code, site.tag, site.line, "%s", text.c_str()};
}

SLError Error(int code, Site site, std::string message) {
  return {code, std::move(message), std::string(site.tag), site.line};
}

}  // namespace kova
