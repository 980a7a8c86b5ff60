// Watches the files that a command works on for a private key that others may read.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace fault_point {

// A regular file with a private key (PEM or JWK) and a mode that lets its group or others read it,
// in folders that let them through.
[[nodiscard]] bool IsExposedKey(const std::string& path);

// Between two stops of a process its files are as its last call left them: looking at that call's
// paths at every stop sees every state that lasted.
class KeyWatch {
 public:
  // The thread is about to make a call on these paths.
  void Expect(pid_t thread, std::vector<std::string> paths);

  // The paths of calls under way that are exposed keys now. The calls of `thread` are over.
  [[nodiscard]] std::vector<std::string> Look(pid_t thread);

 private:
  std::map<pid_t, std::vector<std::string>> paths_;
};

}  // namespace fault_point
