#include "archive_cli/kept_stderr.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>

namespace kova::archive_cli {

KeptStderr::KeptStderr()
    : real_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
      kept_(memfd_create("stderr", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  if (real_ && kept_) dup2(kept_.Get(), STDERR_FILENO);
}

KeptStderr::~KeptStderr() { Release(); }

std::string KeptStderr::Release() {
  std::string text;
  if (!real_ || !kept_) return text;
  dup2(real_.Get(), STDERR_FILENO);
  real_ = platform::Fd();
  fcntl(kept_.Get(), F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_GROW);
  std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while ((count = pread(kept_.Get(), buffer.data(), buffer.size(),
                        static_cast<off_t>(text.size()))) > 0) {
    text.append(buffer.data(), static_cast<size_t>(count));
  }
  return text;
}

std::string LastLine(const std::string& text) {
  const size_t end = text.find_last_not_of(" \t\r\n");
  if (end == std::string::npos) return {};
  const size_t before = text.find_last_of("\r\n", end);
  return text.substr(before == std::string::npos ? 0 : before + 1, end - before);
}

}  // namespace kova::archive_cli
