#include "platform/strings.h"

#include <arpa/inet.h>

#include <cerrno>
#include <exception>

#include "platform/error.h"

using kova::platform::RecordError;

KovaSzListPtr KLIBCSzListAlloc(int entries) {
  if (entries <= 0) {
    RecordError(EINVAL);
    return nullptr;
  }
  try {
    auto list = std::make_unique<KOVA_SZ_LIST>();
    list->capacity = static_cast<size_t>(entries);
    list->items.reserve(list->capacity);
    return list;
  } catch (const std::exception&) {
    RecordError(ENOMEM);
    return nullptr;
  }
}

int KLIBCStrSep(const std::string& text, const std::string& separator, KOVA_SZ_LIST& list) {
  if (separator.empty()) {
    RecordError(EINVAL);
    return -1;
  }
  std::vector<std::string> pieces;
  size_t start = 0;
  for (size_t end = 0; end != std::string::npos; start = end + separator.size()) {
    end = text.find(separator, start);
    pieces.push_back(text.substr(start, end == std::string::npos ? end : end - start));
  }
  if (list.items.size() + pieces.size() > list.capacity) {
    RecordError(ENOBUFS);
    return -1;
  }
  list.items.insert(list.items.end(), pieces.begin(), pieces.end());
  return static_cast<int>(pieces.size());
}

const char* KLIBCSzListGet(const KOVA_SZ_LIST& list, int index) {
  if (index < 0 || static_cast<size_t>(index) >= list.items.size()) return nullptr;
  return list.items[static_cast<size_t>(index)].c_str();
}

bool BlKLIBIsIpAddr(const std::string& text) {
  in6_addr address{};
  // Texts with an embedded NUL are not what inet_pton would see of them.
  if (text.find('\0') != std::string::npos) return false;
  return inet_pton(AF_INET, text.c_str(), &address) == 1 ||
         inet_pton(AF_INET6, text.c_str(), &address) == 1;
}
