// INFO, the index of the archive: one JSON object, certificate id -> object with a "services"
// array. What other programs keep in it is carried through every rewrite.
//
// The index is shared with other programs of the host. Whoever changes it holds IndexLock from
// before reading until after writing; EditIndex is the only way in which this program does so.
// Readers need no lock, since the file is only ever replaced whole. No call throws; every failure
// is logged.
#pragma once

#include <json/value.h>

#include <chrono>
#include <functional>

#include "base/file_lock.h"
#include "base/log.h"
#include "base/status.h"

namespace kova::cert_archive {

// In /tmp because all programs that share the index agreed on it.
inline constexpr char kIndexLockPath[] = "/tmp/kovacertificate_info.lock";

// Different on purpose: a refresh of what is deployed already can wait longer than a person.
inline constexpr std::chrono::seconds kUpdateTimeout{10};
inline constexpr std::chrono::seconds kRefreshTimeout{60};

class IndexLock : public FileLock {
 public:
  explicit IndexLock(std::chrono::seconds timeout);
};

// Reads and parses INFO, as any type of value.
Status ReadIndex(Json::Value& info);

// As above, and INFO holds an object.
Status ReadIndexObject(Json::Value& info);

// Replaces INFO whole by way of INFO.temp, keeping its mode. The caller holds the lock.
Status WriteIndex(const Json::Value& info);

// Logs "Broken [INFO].[triple]" with the caller's line, and returns that failure.
Status BrokenIndex(Site site);

enum class IndexEdit { kWrite, kLeave };
enum class MissingIndex { kIsBroken, kIsEmpty };

// Gets INFO's object as it is under the lock, and says what is to become of it: written back, or
// left as it is. What the editor throws passes through; INFO is then as it was.
using IndexEditor = std::function<IndexEdit(Json::Value& info)>;

// The one read-modify-write. An index that holds what a rewrite would not keep (bytes that are no
// UTF-8, numbers that no double holds) stays as it is: that is a failure. So is when the lock was
// not to be had, and when INFO was not readable or not writable.
Status EditIndex(std::chrono::seconds timeout, const IndexEditor& edit,
                 MissingIndex missing = MissingIndex::kIsBroken);

// The same for a caller that holds the lock for longer than the edit.
Status EditIndex(const IndexLock& lock, const IndexEditor& edit,
                 MissingIndex missing = MissingIndex::kIsBroken);

}  // namespace kova::cert_archive
