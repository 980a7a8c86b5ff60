#include "lifecycle/names.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include "base/debug.h"
#include "base/sl_error.h"

namespace kova {
namespace {

std::string Trim(const std::string& text) {
  const auto is_space = [](unsigned char c) { return std::isspace(c) != 0; };
  const auto begin = std::find_if_not(text.begin(), text.end(), is_space);
  const auto end = std::find_if_not(text.rbegin(), std::make_reverse_iterator(begin), is_space);
  return {begin, end.base()};
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

void AnnounceAndValidate(const IssueOptions& options,
                         const std::function<void(const std::string&)>& check) {
  if (options.names.empty()) {
    throw Error(code::kNoDomain, "kova-letsencrypt", "no valid domain name");
  }
  DebugStep("==== start to new cert ====");
  DebugStep("Server: %s", options.server.c_str());
  DebugStep("Email: %s", options.contact.c_str());
  for (const std::string& name : options.names) {
    DebugStep("Domain: %s", name.c_str());
    check(name);
  }
  DebugStep("==========================");
}

}  // namespace kova
