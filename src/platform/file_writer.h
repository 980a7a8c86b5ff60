// The one writer for files that matter. Data is written, flushed and closed before the name
// appears; the mode is the final one from the first byte, whatever the umask; the folder is
// flushed. A failed write leaves neither a cut file nor a staging file behind.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace kova::platform {

struct FileOwner {
  uid_t uid;
  gid_t gid;
};

// Replaces `path` whole. Staged beside it under a name that ends in a dot and six random
// characters (cron ignores such names). Returns 0, or the errno of the step that failed; the old
// file is then untouched (only when flushing the folder failed is the new one already in place).
// Without an owner the file is the effective user's.
[[nodiscard]] int ReplaceFile(const std::string& path, std::string_view content, mode_t mode,
                              const FileOwner* owner = nullptr);

// The two halves of the above, for a format whose staging name is fixed. Stage creates `staging`
// anew (a leftover is removed first, links are never followed); Commit renames it over `path` and
// flushes the folder. Both return 0 or an errno; Stage removes `staging` when it fails.
[[nodiscard]] int StageFile(const std::string& staging, std::string_view content, mode_t mode,
                            const FileOwner* owner = nullptr);
[[nodiscard]] int CommitStaged(const std::string& staging, const std::string& path);

}  // namespace kova::platform
