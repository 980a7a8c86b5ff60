#include "lifecycle/name_check.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace kova {
namespace {

constexpr size_t kLongestName = 253;
constexpr size_t kLongestLabel = 63;
constexpr size_t kLongestCommonName = 64;
constexpr std::string_view kHostCharacters = "abcdefghijklmnopqrstuvwxyz0123456789-.";
// RFC 5322 "atext", and the dot between two atoms.
constexpr std::string_view kMailCharacters =
    "abcdefghijklmnopqrstuvwxyz0123456789!#$%&'*+-/=?^_`{|}~.";

std::string Lower(std::string text) {
  // Of ASCII alone, whatever the locale.
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

bool IsAddress(const std::string& text) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return inet_pton(AF_INET, text.c_str(), address.data()) == 1 ||
         inet_pton(AF_INET6, text.c_str(), address.data()) == 1;
}

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

std::string WhyBadCharacter(const std::string& name) {
  const size_t at = name.find_first_not_of(kHostCharacters);
  if (at == std::string::npos) return {};
  if (name[at] == ';') return "names are separated by commas";
  if (name[at] == '*') return "a \"*\" stands alone at the beginning, before a dot";
  if (!IsAscii(name)) return "it is to be given in its ASCII form (xn--...)";
  return "it holds a character that no host name has";
}

std::string WhyBadLabel(const std::string& label) {
  if (label.empty()) return "it has an empty part between two dots, or at an end";
  if (label.size() > kLongestLabel) return "a part of it has more than 63 characters";
  if (label.front() == '-' || label.back() == '-') return "a part of it begins or ends with \"-\"";
  return {};
}

std::string WhyBadLabels(const std::string& name) {
  for (size_t begin = 0; begin <= name.size();) {
    const size_t end = std::min(name.find('.', begin), name.size());
    std::string why = WhyBadLabel(name.substr(begin, end - begin));
    if (!why.empty()) return why;
    begin = end + 1;
  }
  return {};
}

}  // namespace

std::vector<std::string> TidyNames(const std::vector<std::string>& names) {
  std::vector<std::string> tidy;
  for (const std::string& name : names) {
    const std::string lower = Lower(name);
    if (std::find(tidy.begin(), tidy.end(), lower) == tidy.end()) tidy.push_back(lower);
  }
  return tidy;
}

std::string WhyNoName(const std::string& name) {
  if (IsAddress(name)) return "it is an address, and certificates are for names";
  if (name.size() > kLongestName) return "it has more than 253 characters";
  const std::string host = Lower(name.starts_with("*.") ? name.substr(2) : name);
  std::string why = WhyBadCharacter(host);
  return why.empty() ? WhyBadLabels(host) : why;
}

std::string WhyNoNames(const std::vector<std::string>& names) {
  if (names.empty()) return "no host name is given";
  for (const std::string& name : names) {
    const std::string why = WhyNoName(name);
    if (!why.empty())
      return std::string("[").append(name).append("] is no host name: ").append(why);
  }
  if (names.front().size() <= kLongestCommonName) return {};
  return "the first name has more than 64 characters, for which a certificate's subject has no "
         "room: name a shorter one first";
}

std::string WhyNoMail(const std::string& mail) {
  const size_t at = mail.rfind('@');
  if (at == std::string::npos || at == 0) return "it is not of the form NAME@HOST";
  const std::string local = Lower(mail.substr(0, at));
  if (local.find_first_not_of(kMailCharacters) != std::string::npos) {
    return "its first part holds a character that is not taken";
  }
  const std::string host = mail.substr(at + 1);
  if (host.starts_with("*")) return "its host is none";
  const std::string why = WhyNoName(host);
  return why.empty() ? "" : "its host is none: " + why;
}

std::string WhyNoDirectory(const std::string& url) {
  const size_t prefix = url.starts_with("https://") ? 8 : url.starts_with("http://") ? 7 : 0;
  if (prefix == 0 || url.size() == prefix) return "it does not begin with https:// and a host";
  const bool is_plain =
      std::all_of(url.begin(), url.end(), [](unsigned char c) { return c > 0x20 && c < 0x7f; });
  return is_plain ? "" : "it holds a blank, a control character or one that is not ASCII";
}

}  // namespace kova
