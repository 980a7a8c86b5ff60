#include "base/progress.h"

#include <unistd.h>

#include <cstdio>

#include "platform/clock.h"

namespace kova {
namespace {

constexpr char kRewrite[] = "\r\033[K";  // to the start of the line, wiping it
constexpr size_t kMaximumWidth = 78;     // a wrapped line could not be rewritten

struct State {
  bool visible = false;
  std::string stage;
  std::chrono::seconds waited{0};
};
State line;

// Names and stages may come from a server: nothing in them may reach the terminal as a control.
std::string Printable(const std::string& text) {
  std::string safe;
  for (const char c : text) safe += (c >= 0x20 && c < 0x7f) ? c : '?';
  return safe;
}

void Draw() {
  if (!line.visible || line.stage.empty()) return;
  std::string text = line.stage;
  if (line.waited.count() > 0) text += " (waited " + std::to_string(line.waited.count()) + " s)";
  if (text.size() > kMaximumWidth) text.resize(kMaximumWidth);
  std::fprintf(stderr, "%s%s", kRewrite, text.c_str());
  std::fflush(stderr);
}

}  // namespace

ProgressLine::ProgressLine() { line = State{isatty(STDERR_FILENO) == 1, {}, {}}; }

ProgressLine::~ProgressLine() {
  if (line.visible && !line.stage.empty()) std::fputs(kRewrite, stderr);
  line = State{};
}

void ShowStage(const std::string& name, const std::string& stage) {
  if (!line.visible) return;
  const std::string text = Printable(name.empty() ? stage : name + ": " + stage);
  if (text != line.stage) line.waited = std::chrono::seconds(0);
  line.stage = text;
  Draw();
}

void WaitVisibly(std::chrono::seconds duration) {
  platform::SleepFor(duration);
  line.waited += duration;
  Draw();
}

}  // namespace kova
