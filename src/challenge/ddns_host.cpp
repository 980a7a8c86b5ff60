#include <algorithm>
#include <array>
#include <locale>

#include "base/log.h"
#include "challenge/challenge.h"
#include "platform/device.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

std::string Lower(std::string text) {
  const std::locale& classic = std::locale::classic();
  std::transform(text.begin(), text.end(), text.begin(),
                 [&classic](char c) { return std::tolower(c, classic); });
  return text;
}

}  // namespace

bool IsHostName(const std::string& name) {
  return std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_' || c == '*';
  });
}

bool IsKovaDdnsHost(const std::string& name) {
  std::array<char, 1024> own{};
  if (KOVADDNSGetKovaHostname(own.data(), own.size()) < 0 || own[0] == '\0') {
    LogDebugPriority(kTag, "No kova DDNS.");
    return false;
  }
  return Lower(name).find(Lower(own.data())) != std::string::npos;
}

}  // namespace kova
