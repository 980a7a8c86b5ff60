// Child programs: run by absolute path, without a shell, and waited for.
//
// A child gets its standard input from /dev/null, inherits no descriptor of ours beyond standard
// error, and its standard output never reaches the program's own (it goes to /dev/null). Results:
// 0 on exit status 0 and the exit status when positive (errno is then 0: the fault is the child's),
// negative when the program could not be run or was killed by a signal (EINTR in the error triple).
//
// A run that is to end (platform/signals.h) waits no longer: the result is then negative, as after
// a signal. A tool is killed for that; a script is left to finish what it does to its service.
//
// The child's environment is ours but for PATH, which is kChildPath whatever ours is.
#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/watch_child.h"

using KovaArgs = std::vector<std::string>;

// Has the sbin folders, where reload scripts find their services' tools; cron's own has not.
inline constexpr char kChildPath[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

// `args` are the arguments after the program's own name.
int KLIBCExec(const std::string& program, const KovaArgs& args);

// Option words of the callers. kKovaExecTool: the child's standard error is kept and its last line
// that is not empty written to syslog only when the child fails; with any other word standard error
// is inherited.
inline constexpr unsigned kKovaExecTool = 0xBB;
inline constexpr unsigned kKovaExecScript = 0x1BB;
// `complaint`, where it is given, receives that line (and is left alone with any other word).
int KLIBCExecl(const std::string& program, unsigned option, const KovaArgs& args,
               std::string* complaint = nullptr);

// A whole argument vector, argv[0] being the program. Flag 1: as kKovaExecTool.
int KLIBCExecv(const KovaArgs& argv, int flag, std::string* complaint = nullptr);

namespace kova::platform {

// For the start of a program: gives standard descriptors that its caller left closed to /dev/null,
// so that no file of ours gets their numbers and with them our output, and turns a file that grows
// beyond the size limit, and a reader of our output that has gone, from deadly signals into failed
// writes.
void PrepareProcess();

// As above, within limits. The child leads a process group of its own; past a limit the whole group
// is ended and the result is negative, the error triple then ETIMEDOUT or EMSGSIZE. `output`
// receives what the child writes to its standard output; null: that goes to /dev/null, and what the
// child leaves running can write on. Returns when the child itself has ended.
int RunWithin(const ChildLimits& limits, const std::string& program, const KovaArgs& args,
              std::string* output);

}  // namespace kova::platform

namespace kova {

// For tools that write private keys or copies of them: what they create is never, not even before
// its final mode is set, open to others.
inline constexpr mode_t kPrivateUmask = 077;

// For tools that create folders: 0755, whoever started this program.
inline constexpr mode_t kFolderUmask = 022;

// The umask that child programs inherit, for the life of the object.
class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : previous_(umask(mask)) {}
  ~ScopedUmask() { umask(previous_); }
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  mode_t previous_;
};

}  // namespace kova
