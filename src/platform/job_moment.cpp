#include <string_view>

#include "platform/crond.h"

namespace kova::platform {
namespace {

// FNV-1a with a finishing mix, so that ids that differ in one digit end far apart.
uint64_t Hash(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const unsigned char c : text) hash = (hash ^ c) * 0x100000001b3;
  hash = (hash ^ (hash >> 30)) * 0xbf58476d1ce4e5b9;
  hash = (hash ^ (hash >> 27)) * 0x94d049bb133111eb;
  return hash ^ (hash >> 31);
}

}  // namespace

JobMoment MomentOfJob(const std::string& host, const std::string& job) {
  const uint64_t hash = Hash(host + "/" + job);
  return {hash % 60, hash / 60 % 24, hash / 60 / 24 % 7};
}

}  // namespace kova::platform
