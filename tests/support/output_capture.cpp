#include "output_capture.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "base/debug.h"

namespace kova::test {
namespace {

constexpr char kDebugMark[] = "DEBUG: ";

}  // namespace

OutputCapture::OutputCapture(int debug_level) {
  std::fflush(stdout);
  kept_ = dup(STDOUT_FILENO);
  captured_ = memfd_create("standard output", MFD_CLOEXEC);
  if (kept_ < 0 || captured_ < 0 || dup2(captured_, STDOUT_FILENO) < 0) {
    std::perror("cannot capture standard output");
    std::abort();
  }
  SetDebugLevel(debug_level);
  SetDebugToSyslog(0);
}

OutputCapture::~OutputCapture() {
  // What GoogleTest had to say about a failure went to standard output as well.
  const std::string lost = ::testing::Test::HasFailure() ? Text() : std::string();
  std::fflush(stdout);
  dup2(kept_, STDOUT_FILENO);
  close(kept_);
  close(captured_);
  SetDebugLevel(0);
  SetDebugToSyslog(0);
  std::fputs(lost.c_str(), stdout);
}

std::string OutputCapture::Text() {
  std::fflush(stdout);
  std::string text;
  std::array<char, 65536> buffer{};
  ssize_t length = 0;
  while ((length = pread(captured_, buffer.data(), buffer.size(),
                         static_cast<off_t>(text.size()))) > 0) {
    text.append(buffer.data(), static_cast<size_t>(length));
  }
  return text;
}

std::vector<std::string> OutputCapture::Lines() {
  std::vector<std::string> lines;
  std::istringstream text(Text());
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

std::vector<std::string> OutputCapture::Debug() {
  std::vector<std::string> messages;
  for (const std::string& line : Lines()) {
    if (line.starts_with(kDebugMark)) messages.push_back(line.substr(sizeof kDebugMark - 1));
  }
  return messages;
}

}  // namespace kova::test
