// Text for terminals: UTF-8 by its width on the screen.
#pragma once

#include <string>

namespace kova::archive_cli {

// The text with everything that is no printable character replaced by "?": names in certificates
// are written by strangers and must not steer a terminal.
std::string Printable(const std::string& text);

// True for UTF-8 without control characters: what can be kept as JSON and shown to people.
bool IsWriting(const std::string& text);

// Columns that the text takes. `text` must be printable.
size_t Width(const std::string& text);

// The text, or as much of it as fits in that many columns, ended by an ellipsis.
std::string Shortened(const std::string& text, size_t width);

}  // namespace kova::archive_cli
