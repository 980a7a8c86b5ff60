#include "state_calls.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stddef.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace fault_point {
namespace {

constexpr int kNone = -1;
constexpr unsigned kChanges = O_CREAT | O_TRUNC | (O_TMPFILE & ~O_DIRECTORY);

// Argument numbers. A path without a folder is relative to the working folder; a folder without a
// path is a descriptor.
struct Place {
  int folder = kNone;
  int path = kNone;
};

struct StateCall {
  long number;
  const char* name;
  Place first;
  Place second = {};
  int flags = kNone;  // an open: it counts when these have one of kChanges
};

const StateCall kCalls[] = {
    {SYS_open, "open", {kNone, 0}, {}, 1},
    {SYS_openat, "openat", {0, 1}, {}, 2},
    {SYS_creat, "creat", {kNone, 0}},
    {SYS_write, "write", {0}},
    {SYS_pwrite64, "pwrite64", {0}},
    {SYS_writev, "writev", {0}},
    {SYS_pwritev, "pwritev", {0}},
    {SYS_ftruncate, "ftruncate", {0}},
    {SYS_truncate, "truncate", {kNone, 0}},
    {SYS_fallocate, "fallocate", {0}},
    {SYS_sendfile, "sendfile", {0}},
    {SYS_copy_file_range, "copy_file_range", {2}},
    {SYS_rename, "rename", {kNone, 0}, {kNone, 1}},
    {SYS_renameat, "renameat", {0, 1}, {2, 3}},
    {SYS_renameat2, "renameat2", {0, 1}, {2, 3}},
    {SYS_link, "link", {kNone, 0}, {kNone, 1}},
    {SYS_linkat, "linkat", {0, 1}, {2, 3}},
    {SYS_symlink, "symlink", {kNone, 1}},
    {SYS_symlinkat, "symlinkat", {1, 2}},
    {SYS_unlink, "unlink", {kNone, 0}},
    {SYS_unlinkat, "unlinkat", {0, 1}},
    {SYS_mkdir, "mkdir", {kNone, 0}},
    {SYS_mkdirat, "mkdirat", {0, 1}},
    {SYS_rmdir, "rmdir", {kNone, 0}},
    {SYS_chmod, "chmod", {kNone, 0}},
    {SYS_fchmod, "fchmod", {0}},
    {SYS_fchmodat, "fchmodat", {0, 1}},
    {SYS_chown, "chown", {kNone, 0}},
    {SYS_lchown, "lchown", {kNone, 0}},
    {SYS_fchown, "fchown", {0}},
    {SYS_fchownat, "fchownat", {0, 1}},
    {SYS_fsync, "fsync", {0}},
    {SYS_fdatasync, "fdatasync", {0}},
    {SYS_utimensat, "utimensat", {0, 1}},
    {SYS_utimes, "utimes", {kNone, 0}},
};

const StateCall* Find(long number) {
  const auto found = std::find_if(std::begin(kCalls), std::end(kCalls),
                                  [&](const StateCall& call) { return call.number == number; });
  return found == std::end(kCalls) ? nullptr : found;
}

sock_filter Load(size_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<unsigned>(offset));
}
sock_filter Return(unsigned action) { return BPF_STMT(BPF_RET | BPF_K, action); }
sock_filter SkipUnless(unsigned short test, unsigned value, unsigned char steps) {
  return BPF_JUMP(static_cast<unsigned short>(BPF_JMP | test | BPF_K), value, 0, steps);
}

// The number of the call is loaded, and still is behind these steps when it is another one.
std::vector<sock_filter> StepsFor(const StateCall& call) {
  const auto number = static_cast<unsigned>(call.number);
  if (call.flags == kNone) return {SkipUnless(BPF_JEQ, number, 1), Return(SECCOMP_RET_TRACE)};
  const size_t flags = offsetof(seccomp_data, args) + 8 * static_cast<size_t>(call.flags);
  return {SkipUnless(BPF_JEQ, number, 4), Load(flags), SkipUnless(BPF_JSET, kChanges, 1),
          Return(SECCOMP_RET_TRACE), Return(SECCOMP_RET_ALLOW)};
}

std::vector<sock_filter> Filter() {
  std::vector<sock_filter> filter = {Load(offsetof(seccomp_data, arch)),
                                     BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
                                     Return(SECCOMP_RET_ALLOW), Load(offsetof(seccomp_data, nr))};
  for (const StateCall& call : kCalls) {
    const auto steps = StepsFor(call);
    filter.insert(filter.end(), steps.begin(), steps.end());
  }
  filter.push_back(Return(SECCOMP_RET_ALLOW));
  return filter;
}

std::string Target(const std::string& link) {
  char target[PATH_MAX];
  const ssize_t length = readlink(link.c_str(), target, sizeof target);
  return length < 0 ? "" : std::string(target, static_cast<size_t>(length));
}

// Page by page, since what comes after the text may not be readable.
std::string TextAt(pid_t thread, unsigned long long address) {
  constexpr size_t kPage = 4096;
  std::string text;
  while (text.size() < PATH_MAX) {
    char page[kPage];
    const size_t wanted = kPage - address % kPage;
    const iovec local = {page, wanted};
    const iovec remote = {reinterpret_cast<void*>(address), wanted};
    const ssize_t got = process_vm_readv(thread, &local, 1, &remote, 1, 0);
    if (got <= 0) return "";
    const size_t length = strnlen(page, static_cast<size_t>(got));
    text.append(page, length);
    if (length < static_cast<size_t>(got)) return text;
    address += static_cast<unsigned long long>(got);
  }
  return "";
}

std::string DescriptorLink(pid_t thread, int descriptor) {
  const std::string process = "/proc/" + std::to_string(thread);
  if (descriptor == AT_FDCWD) return process + "/cwd";
  return process + "/fd/" + std::to_string(descriptor);
}

std::string FileOf(pid_t thread, int descriptor) {
  const std::string link = DescriptorLink(thread, descriptor);
  struct stat status;
  if (stat(link.c_str(), &status) != 0) return "";
  return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) ? Target(link) : "";
}

std::string PathAt(const Call& call, const Place& place) {
  const auto argument = [&](int n) { return call.arguments.at(static_cast<size_t>(n)); };
  const int folder = place.folder == kNone ? AT_FDCWD : static_cast<int>(argument(place.folder));
  if (place.path == kNone || argument(place.path) == 0) return FileOf(call.thread, folder);
  const std::string path = TextAt(call.thread, argument(place.path));
  if (path.empty()) return FileOf(call.thread, folder);
  return path.front() == '/' ? path : Target(DescriptorLink(call.thread, folder)) + "/" + path;
}

}  // namespace

bool StopBeforeStateCalls() {
  std::vector<sock_filter> filter = Filter();
  const sock_fprog program = {static_cast<unsigned short>(filter.size()), filter.data()};
  return syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
}

const char* NameOf(const Call& call) {
  const StateCall* known = Find(call.number);
  return known == nullptr ? "?" : known->name;
}

std::vector<std::string> PathsOf(const Call& call) {
  const StateCall* known = Find(call.number);
  std::vector<std::string> paths;
  if (known == nullptr) return paths;
  for (const Place& place : {known->first, known->second}) {
    if (place.folder == kNone && place.path == kNone) continue;
    if (std::string path = PathAt(call, place); !path.empty()) paths.push_back(path);
  }
  return paths;
}

}  // namespace fault_point
