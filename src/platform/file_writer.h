// The one writer for files that matter. Data is written and flushed before the name
// appears; the mode is the final one from the first byte, whatever the umask; the folder is
// flushed. A failed write leaves neither a cut file nor a staging file behind, and what a killed
// one left, the next one of the same file removes (staging.h).
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace kova::platform {

struct FileOwner {
  uid_t uid;
  gid_t gid;
};

// 0, or the errno of the step that failed.
class [[nodiscard]] WriteResult {
 public:
  WriteResult(int error, bool in_place) : error_(error), in_place_(in_place) {}

  // NOLINTNEXTLINE(google-explicit-constructor): most callers ask for nothing more
  operator int() const { return error_; }

  // True when the path holds the new content. With an error: only the flush of its folder failed,
  // so it is the new file to every reader, and to those after a power cut the old one or the new
  // one. False: the old file, or its absence, is untouched.
  [[nodiscard]] bool InPlace() const { return error_ == 0 || in_place_; }

 private:
  int error_;
  bool in_place_;
};

// Replaces `path` whole, or makes it. A new file has no name until it is finished, where the file
// system knows such; one that replaces another is staged beside it. Without an owner the file is
// the effective user's.
WriteResult ReplaceFile(const std::string& path, std::string_view content, mode_t mode,
                        const FileOwner* owner = nullptr);

// The two halves of the above, for a format whose staging name is fixed. Stage creates `staging`
// anew (a leftover is removed first, links are never followed) and returns 0 or an errno, having
// removed it then; Commit renames it over `path` and flushes the folder.
[[nodiscard]] int StageFile(const std::string& staging, std::string_view content, mode_t mode,
                            const FileOwner* owner = nullptr);
WriteResult CommitStaged(const std::string& staging, const std::string& path);

}  // namespace kova::platform
