#include "base/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/clock.h"

namespace kova {
namespace {

constexpr char kRewrite[] = "\r\033[K";  // to the start of the line, wiping it
constexpr size_t kMaximumWidth = 78;

struct State {
  bool visible = false;
  int descriptor = STDERR_FILENO;
  std::string stage;
  std::chrono::milliseconds waited{0};
};
State line;  // NOLINT(*-non-const-global-variables): the process has one terminal

// Names and stages may come from a server: nothing in them may reach the terminal as a control.
std::string Printable(const std::string& text) {
  std::string safe;
  for (const char c : text) safe += (c >= 0x20 && c < 0x7f) ? c : '?';
  return safe;
}

bool IsDrawn() { return line.visible && !line.stage.empty(); }

// A line that wraps could not be rewritten, so it stays a column short of the terminal's edge.
size_t Width() {
  winsize size{};
  if (ioctl(line.descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col < 2) return kMaximumWidth;
  return std::min<size_t>(kMaximumWidth, size.ws_col - 1U);
}

void Draw() {
  if (!IsDrawn()) return;
  std::string waited;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(line.waited).count();
  if (seconds > 0) waited = " (waited " + std::to_string(seconds) + " s)";
  const size_t width = Width();
  const size_t room = width - std::min(width, waited.size());  // a long name loses its end first
  const std::string text = (line.stage.substr(0, room) + waited).substr(0, width);
  (void)dprintf(line.descriptor, "%s%s", kRewrite, text.c_str());
}

}  // namespace

ProgressLine::ProgressLine() : ProgressLine(STDERR_FILENO) {}

ProgressLine::ProgressLine(int descriptor) {
  line = State{isatty(descriptor) == 1, descriptor, {}, {}};
}

ProgressLine::~ProgressLine() {
  HideProgress();
  line = State{};
}

void ShowStage(const std::string& name, const std::string& stage) {
  const std::string text = Printable(name.empty() ? stage : name + ": " + stage);
  if (text != line.stage) line.waited = std::chrono::milliseconds(0);
  line.stage = text;
  Draw();
}

void HideProgress() {
  if (IsDrawn()) (void)dprintf(line.descriptor, "%s", kRewrite);
}

void WaitVisibly(std::chrono::milliseconds duration) {
  platform::SleepFor(duration);
  line.waited += duration;
  Draw();
}

}  // namespace kova
