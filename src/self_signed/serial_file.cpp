#include "self_signed/serial_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <optional>

#include "base/files.h"
#include "base/log.h"
#include "platform/device.h"
#include "platform/file_writer.h"
#include "platform/files.h"
#include "self_signed/mkcert_config.h"

namespace kova::mkcert {
namespace {

constexpr mode_t kSerialMode = 0600;
constexpr size_t kBufferSize = 32;  // of both texts, terminator included
constexpr size_t kSkippedOfMac = 8;

// The kernel's entry where there is one, else what the host offers instead. None after a message.
std::optional<std::string> MacText() {
  const platform::FilePtr file = platform::OpenToRead(kMacAddressFile);
  if (file == nullptr) {
    std::string text;
    if (access(kMacAddressFile, F_OK) != 0) text = platform::MacAddressText();
    if (!text.empty()) return text.substr(0, kBufferSize - 1);
    LogError(kTag, "Open %s failed", kMacAddressFile);
    return std::nullopt;
  }
  char word[kBufferSize];
  if (std::fscanf(file.get(), "%31s", word) != 1) {
    LogError(kTag, "Fetch %s failed", kMacAddressFile);
    return std::nullopt;
  }
  return word;
}

}  // namespace

std::string FirstSerial(std::int64_t now, const std::string& mac) {
  std::string serial = std::to_string(now);
  for (size_t i = kSkippedOfMac; i < mac.size() && serial.size() < kBufferSize - 1; ++i) {
    // The tool reads hexadecimal digits; a MAC address may come with colons.
    if (std::isxdigit(static_cast<unsigned char>(mac[i])) != 0) serial += mac[i];
  }
  if (serial.size() % 2 != 0) serial += '1';
  return serial;
}

Status CreateSerialFile() {
  const std::optional<std::string> mac = MacText();
  if (!mac) return Status::Failed("no MAC address to begin serial numbers with");
  if (Status made = MakeParentDirectory(kSerialFile); !made) {
    LogError(kTag, "Open %s failed", kSerialFile);
    return made;
  }
  const int error =
      platform::ReplaceFile(kSerialFile, FirstSerial(std::time(nullptr), *mac), kSerialMode);
  if (error == 0) return {};
  LogError(kTag, "Open %s failed", kSerialFile);
  return Status::Failed("Failed to write", kSerialFile, ErrorWords(error));
}

bool HasSerialFile() {
  struct stat status {};
  return stat(kSerialFile, &status) == 0 && status.st_size > 0;
}

bool HoldsSerial() {
  std::string text = ReadTextFile(kSerialFile);
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char character) {
    return std::isxdigit(character) != 0;
  });
}

}  // namespace kova::mkcert
