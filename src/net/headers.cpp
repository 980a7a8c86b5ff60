#include "net/headers.h"

#include <strings.h>

#include <sstream>

#include "base/debug.h"

namespace kova {
namespace {

constexpr char kBlanks[] = " \t\r";

}  // namespace

std::string GetHeader(const HttpResponse& response, const std::string& name) {
  size_t position = 0;
  return GetHeader(response, name, position);
}

std::string GetHeader(const HttpResponse& response, const std::string& name, size_t& position) {
  const std::string needle = "\n" + name + ": ";
  const size_t match = response.header.find(needle, position);
  if (match == std::string::npos) {
    position = std::string::npos;
    return {};
  }
  const size_t start = match + needle.size();
  position = response.header.find('\r', start);
  // npos takes the rest of the text: the header of a reply may end without a line end.
  return response.header.substr(start, position - start);
}

std::string AnyCaseHeader(const HttpResponse& response, const std::string& name) {
  std::istringstream lines(response.header);
  for (std::string line; std::getline(lines, line);) {
    const size_t colon = line.find(':');
    if (colon != name.size() || strncasecmp(line.c_str(), name.c_str(), colon) != 0) continue;
    const size_t first = line.find_first_not_of(kBlanks, colon + 1);
    if (first == std::string::npos) return {};
    return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
  }
  return {};
}

std::string GetLinkUrl(const HttpResponse& response, const std::string& relation) {
  // No blank anywhere around ";" and "=": deliberate.
  const std::string needle = ">;rel=\"" + relation + "\"";
  size_t position = 0;
  while (position != std::string::npos) {
    const std::string value = GetHeader(response, "Link", position);
    if (value.empty()) return {};
    const size_t end = value.find(needle);
    if (end == std::string::npos) continue;
    if (end == 0) return {};
    const size_t open = value.rfind('<', end - 1);
    if (open == std::string::npos) {
      DebugStep("Link rel: %s, url not found", relation.c_str());
      return {};
    }
    return value.substr(open + 1, end - open - 1);
  }
  return {};
}

}  // namespace kova
