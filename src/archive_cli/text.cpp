#include "archive_cli/text.h"

#include <clocale>
#include <cwchar>
#include <cwctype>
#include <functional>
#include <string_view>

namespace kova::archive_cli {
namespace {

constexpr char kEllipsis[] = "\u2026";

// The C library's character tables, whatever the user's locale is.
class Utf8 {
 public:
  Utf8() : saved_(uselocale(Tables())) {}
  ~Utf8() { uselocale(saved_); }
  Utf8(const Utf8&) = delete;
  Utf8& operator=(const Utf8&) = delete;

 private:
  static locale_t Tables() {
    static const locale_t tables = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return tables;
  }
  locale_t saved_;
};

// Calls `visit` with each character and its width, -1 for what is not printable, until it returns
// false.
using Visitor = std::function<bool(std::string_view character, int width)>;
void ForEachCharacter(const std::string& text, const Visitor& visit) {
  const Utf8 tables;
  size_t at = 0;
  while (at < text.size()) {
    std::mbstate_t state{};
    wchar_t wide = 0;
    const size_t length = std::mbrtowc(&wide, text.data() + at, text.size() - at, &state);
    const bool decoded = length > 0 && length <= text.size() - at;
    const int width = decoded && std::iswprint(static_cast<wint_t>(wide)) != 0 ? wcwidth(wide) : -1;
    const size_t size = decoded ? length : 1;
    if (!visit(std::string_view(text).substr(at, size), width)) return;
    at += size;
  }
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string printable;
  ForEachCharacter(text, [&](std::string_view character, int width) {
    printable += width < 0 ? "?" : character;
    return true;
  });
  return printable;
}

bool IsWriting(const std::string& text) {
  const Utf8 tables;
  std::mbstate_t state{};
  for (size_t at = 0; at < text.size();) {
    wchar_t wide = 0;
    const size_t length = std::mbrtowc(&wide, text.data() + at, text.size() - at, &state);
    const bool decoded = length > 0 && length <= text.size() - at;
    if (!decoded || std::iswcntrl(static_cast<wint_t>(wide)) != 0) return false;
    at += length;
  }
  return true;
}

size_t Width(const std::string& text) {
  size_t sum = 0;
  ForEachCharacter(text, [&](std::string_view, int width) {
    sum += static_cast<size_t>(width < 0 ? 1 : width);
    return true;
  });
  return sum;
}

std::string Shortened(const std::string& text, size_t width) {
  if (Width(text) <= width) return text;
  if (width == 0) return {};
  std::string kept;
  size_t used = 0;
  ForEachCharacter(text, [&](std::string_view character, int columns) {
    used += static_cast<size_t>(columns < 0 ? 1 : columns);
    if (used > width - 1) return false;
    kept += character;
    return true;
  });
  return kept + kEllipsis;
}

}  // namespace kova::archive_cli
