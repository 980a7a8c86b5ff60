#include "terminal.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>

namespace kova::test {

Terminal::Terminal(unsigned short columns) : kept_(dup(STDERR_FILENO)) {
  int slave = -1;
  winsize size{};
  size.ws_row = 24;
  size.ws_col = columns;
  if (openpty(&master_, &slave, nullptr, nullptr, &size) != 0) {
    std::perror("openpty");
    std::abort();
  }
  fcntl(master_, F_SETFL, O_NONBLOCK);
  dup2(slave, STDERR_FILENO);
  close(slave);
}

Terminal::~Terminal() {
  End();
  close(master_);
}

std::string Terminal::Shown() {
  std::string shown;
  std::array<char, 4096> buffer{};
  ssize_t length = 0;
  while ((length = read(master_, buffer.data(), buffer.size())) > 0) {
    shown.append(buffer.data(), static_cast<size_t>(length));
  }
  return shown;
}

void Terminal::End() {
  if (kept_ < 0) return;
  dup2(kept_, STDERR_FILENO);
  close(kept_);
  kept_ = -1;
}

FullDisk::FullDisk(int descriptor) : descriptor_(descriptor), kept_(dup(descriptor)) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (full < 0) {
    std::perror("/dev/full");
    std::abort();
  }
  dup2(full, descriptor);
  close(full);
}

FullDisk::~FullDisk() {
  dup2(kept_, descriptor_);
  close(kept_);
}

}  // namespace kova::test
