// Child programs: run by absolute path, without a shell, and waited for.
//
// A child gets its standard input from /dev/null, inherits no descriptor of ours beyond standard
// error, and its standard output never reaches the program's own (it goes to /dev/null). Results:
// 0 on exit status 0 and the exit status when positive (errno is then 0: the fault is the child's),
// negative when the program could not be run or was killed by a signal (EINTR in the error triple).
#pragma once

#include <cstddef>
#include <string>
#include <vector>

using KovaArgs = std::vector<std::string>;

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

// As above, and collects at most `limit` bytes of the child's standard output; what is beyond them
// is read and dropped. Returns when the child has ended, also when something that the child left
// running still holds its standard output.
int RunAndCapture(const std::string& program, const KovaArgs& args, size_t limit,
                  std::string& output);

}  // namespace kova::platform
