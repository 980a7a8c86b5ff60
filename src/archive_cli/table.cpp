#include "archive_cli/table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <string_view>

#include "archive_cli/text.h"

namespace kova::archive_cli {
namespace {

constexpr char kGap[] = "  ";
constexpr size_t kGapWidth = 2;
constexpr size_t kWidestPadding = 40;

using Row = std::vector<Cell>;
using Widths = std::vector<size_t>;

const char* StartOf(Colour colour) {
  switch (colour) {
    case Colour::kRed:
      return "\033[31m";
    case Colour::kYellow:
      return "\033[33m";
    case Colour::kBold:
      return "\033[1m";
    case Colour::kNone:
      break;
  }
  return "";
}

std::string Coloured(const std::string& text, Colour colour, const Screen& screen) {
  if (!screen.colours || colour == Colour::kNone || text.empty()) return text;
  return StartOf(colour) + text + "\033[0m";
}

bool IsCut(const Column& column, const Screen& screen) {
  return screen.width > 0 && column.least > 0;
}

// A cell that is never cut may be wider than its column: it moves its own row, and no other.
Widths NaturalWidths(const std::vector<Column>& columns, const std::vector<Row>& rows,
                     const Screen& screen) {
  Widths widths;
  for (size_t i = 0; i < columns.size(); ++i) {
    const bool is_cut = IsCut(columns[i], screen);
    size_t widest = Width(columns[i].title);
    for (const Row& row : rows) {
      const size_t width = Width(row[i].text);
      if (is_cut || width <= kWidestPadding) widest = std::max(widest, width);
    }
    widths.push_back(widest);
  }
  return widths;
}

// The widest column that may still be narrowed, or none.
size_t* Widest(const std::vector<Column>& columns, Widths& widths) {
  size_t* widest = nullptr;
  for (size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].least == 0 || widths[i] <= columns[i].least) continue;
    if (widest == nullptr || widths[i] > *widest) widest = &widths[i];
  }
  return widest;
}

Widths FittedWidths(const std::vector<Column>& columns, const std::vector<Row>& rows,
                    const Screen& screen) {
  Widths widths = NaturalWidths(columns, rows, screen);
  size_t total = std::accumulate(widths.begin(), widths.end(), kGapWidth * (columns.size() - 1));
  while (screen.width > 0 && total > screen.width) {
    size_t* widest = Widest(columns, widths);
    if (widest == nullptr) break;
    --*widest;
    --total;
  }
  return widths;
}

std::string RenderRow(const std::vector<Column>& columns, const Widths& widths, const Row& row,
                      const Screen& screen) {
  std::string line;
  std::string blanks;  // held back, so that no line ends in them
  for (size_t i = 0; i < columns.size(); ++i) {
    const std::string text =
        IsCut(columns[i], screen) ? Shortened(row[i].text, widths[i]) : row[i].text;
    const std::string padding(widths[i] - std::min(widths[i], Width(text)), ' ');
    if (columns[i].right_aligned) blanks += padding;
    if (!text.empty()) {
      line += blanks + Coloured(text, row[i].colour, screen);
      blanks.clear();
    }
    if (!columns[i].right_aligned) blanks += padding;
    blanks += kGap;
  }
  return line + "\n";
}

}  // namespace

Screen Screen::OfStdout() {
  Screen screen;
  if (isatty(STDOUT_FILENO) == 0) return screen;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) screen.width = size.ws_col;
  const char* no_color = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  screen.colours = (no_color == nullptr || *no_color == '\0') &&
                   (terminal == nullptr || std::string_view(terminal) != "dumb");
  return screen;
}

std::string RenderTable(const std::vector<Column>& columns, std::vector<Row> rows,
                        const Screen& screen) {
  for (Row& row : rows) {
    for (Cell& cell : row) cell.text = Printable(cell.text);
  }
  const Widths widths = FittedWidths(columns, rows, screen);
  Row titles;
  for (const Column& column : columns) titles.push_back({column.title, Colour::kBold});
  std::string text = RenderRow(columns, widths, titles, screen);
  for (const Row& row : rows) text += RenderRow(columns, widths, row, screen);
  return text;
}

}  // namespace kova::archive_cli
