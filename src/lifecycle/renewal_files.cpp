#include "lifecycle/renewal_files.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>

#include "acme/renewal_record.h"
#include "base/files.h"
#include "base/sl_error.h"

namespace kova {
namespace {

constexpr char kTag[] = "utils";

std::string Trim(const std::string& text) {
  const auto is_space = [](unsigned char c) { return std::isspace(c) != 0; };
  const auto begin = std::find_if_not(text.begin(), text.end(), is_space);
  const auto end = std::find_if_not(text.rbegin(), std::make_reverse_iterator(begin), is_space);
  return {begin, end.base()};
}

void MoveFile(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return;
  const int reason = errno;
  std::array<char, 1024> message{};
  std::snprintf(message.data(), message.size(), "Rename file failed. %s => %s [%d]", from.c_str(),
                to.c_str(), reason);
  throw Error(code::kLocal, kTag, message.data());
}

}  // namespace

std::vector<std::string> SplitDomainList(const std::string& text, char separator) {
  std::vector<std::string> pieces;
  for (size_t begin = 0; begin <= text.size();) {
    const size_t end = std::min(text.find(separator, begin), text.size());
    std::string piece = Trim(text.substr(begin, end - begin));
    if (!piece.empty()) pieces.push_back(std::move(piece));
    begin = end + 1;
  }
  return pieces;
}

void MoveRenewalFiles(const std::string& fresh, const std::string& old) {
  for (const char* name : kCertificateFiles) MoveFile(fresh + "/" + name, old + "/" + name);
}

void RemoveFolder(const std::string& folder) {
  std::vector<std::string> files;
  if (folder.empty() || !ListByPattern(folder + "/*", files)) return;
  for (const std::string& file : files) unlink(file.c_str());
  rmdir(folder.c_str());
}

}  // namespace kova
