// Disturbs a command before one of its state-changing system calls; see README.md.
#include <signal.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <optional>

#include "tracer.h"

namespace {

using fault_point::Disturbance;
using fault_point::Plan;

constexpr int kUsage = 2;
constexpr char kUsageText[] =
    "usage: fault_point [--log FILE] [--root FOLDER]... [--list | --kill N | --fail N ERROR |\n"
    "                   --signal N NUMBER | --hold N] -- COMMAND [ARGUMENT]...\n";

struct Arguments {
  Plan plan;
  std::string log;
  char** command = nullptr;
};

// The number of an error by its name, or 0.
int ErrorNumber(const std::string& name) {
  for (int number = 1; number < 134; ++number) {
    const char* known = strerrorname_np(number);
    if (known != nullptr && name == known) return number;
  }
  return 0;
}

// A whole positive number, or 0.
int Number(const char* text) {
  char* end = nullptr;
  const long value = std::strtol(text, &end, 10);
  return *end == '\0' && value > 0 && value < 1000000 ? static_cast<int>(value) : 0;
}

class Parser {
 public:
  explicit Parser(char** words) : word_(words) {}

  std::optional<Arguments> Parse() {
    while (*word_ != nullptr && std::strcmp(*word_, "--") != 0) {
      if (!Option(*word_++)) return std::nullopt;
    }
    if (*word_ == nullptr || word_[1] == nullptr) return std::nullopt;
    arguments_.command = word_ + 1;
    if (arguments_.plan.roots.empty()) {
      arguments_.plan.roots = {"/usr/kova",
                               "/etc/cron.d",
                               "/usr/local/etc",
                               "/usr/libexec/certificate.d",
                               "/var/lib/letsencrypt",
                               "/run",
                               "/tmp"};
    }
    return arguments_;
  }

 private:
  bool Option(const std::string& name) {
    static const std::map<std::string, Disturbance> kDisturbances = {
        {"--kill", Disturbance::kKill},
        {"--fail", Disturbance::kFail},
        {"--signal", Disturbance::kSignal},
        {"--hold", Disturbance::kHold}};
    if (name == "--list") return true;
    if (*word_ == nullptr) return false;
    if (name == "--log")
      arguments_.log = *word_++;
    else if (name == "--root")
      arguments_.plan.roots.emplace_back(*word_++);
    else if (const auto found = kDisturbances.find(name); found != kDisturbances.end())
      return Point(found->second);
    else
      return false;
    return true;
  }

  bool Point(Disturbance disturbance) {
    Plan& plan = arguments_.plan;
    plan.disturbance = disturbance;
    plan.point = Number(*word_++);
    if (disturbance == Disturbance::kFail) plan.number = Value(ErrorNumber);
    if (disturbance == Disturbance::kSignal) plan.number = Value(Number);
    const bool has_number =
        disturbance == Disturbance::kFail || disturbance == Disturbance::kSignal;
    return plan.point > 0 && (!has_number || plan.number > 0);
  }

  template <typename Reader>
  int Value(Reader read) {
    return *word_ == nullptr ? 0 : read(*word_++);
  }

  char** word_;
  Arguments arguments_;
};

}  // namespace

int main(int, char** argv) {
  const auto arguments = Parser(argv + 1).Parse();
  if (!arguments) {
    std::cerr << kUsageText;
    return kUsage;
  }
  if (arguments->log.empty()) return Run(arguments->command, arguments->plan, std::cerr);
  std::ofstream log(arguments->log);
  if (!log) {
    std::cerr << "fault_point: " << arguments->log << ": " << std::strerror(errno) << "\n";
    return kUsage;
  }
  return Run(arguments->command, arguments->plan, log);
}
