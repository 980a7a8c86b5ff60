#include "net/headers.h"

#include "base/debug.h"

namespace kova {

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
