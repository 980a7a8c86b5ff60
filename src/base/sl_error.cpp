#include "base/sl_error.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace kova {

SLError::SLError(int number, std::string text, std::string tag, int at)
    : code(number), message(std::move(text)), file(std::move(tag)), line(at) {}

SLError::SLError(int number, const char* tag, int at, const char* format, ...)
    : code(number), file(tag), line(at) {
  std::array<char, 512> buffer{};
  va_list args;
  va_start(args, format);
  (void)std::vsnprintf(buffer.data(), buffer.size(), format, args);
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
