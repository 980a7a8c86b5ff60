// A table with aligned columns.
#pragma once

#include <string>
#include <vector>

namespace kova::archive_cli {

enum class Colour { kNone, kRed, kYellow, kBold };

struct Cell {
  std::string text;
  Colour colour = Colour::kNone;
};

struct Column {
  std::string title;
  bool right_aligned = false;
  size_t least = 0;  // columns that it may be narrowed to; 0: never narrowed
};

struct Screen {
  size_t width = 0;  // 0: any
  bool colours = false;

  // That of standard output. Colours only on a terminal, and never when NO_COLOR is set.
  static Screen OfStdout();
};

// One line per row, below one with the titles. Where the rows are too wide for the screen, the
// columns that may be narrowed share the loss, the widest first. A cell that cannot be cut (off a
// terminal none is) and takes more than 40 columns does not make the other rows as wide.
std::string RenderTable(const std::vector<Column>& columns, std::vector<std::vector<Cell>> rows,
                        const Screen& screen);

}  // namespace kova::archive_cli
