// The platform's string lists.
#pragma once

#include <memory>
#include <string>
#include <vector>

struct KOVA_SZ_LIST {
  size_t capacity;  // entries
  std::vector<std::string> items;
};
using KovaSzListPtr = std::unique_ptr<KOVA_SZ_LIST>;

// An empty list for `entries` entries; none when out of memory or entries is not positive.
KovaSzListPtr KLIBCSzListAlloc(int entries);

// Splits `text` at every `separator`, empty pieces included, and appends them. The number of
// pieces, or -1 when they do not fit in the list.
int KLIBCStrSep(const std::string& text, const std::string& separator, KOVA_SZ_LIST& list);

// The entry, or null when there is none of that index. Owned by the list.
const char* KLIBCSzListGet(const KOVA_SZ_LIST& list, int index);

// True for the text of an IPv4 or IPv6 address.
bool BlKLIBIsIpAddr(const std::string& text);
