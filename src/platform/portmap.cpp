#include "platform/portmap.h"

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "platform/device.h"
#include "platform/error.h"
#include "platform/hooks.h"
#include "platform/router.h"

namespace kova::platform {
namespace {

constexpr char kTag[] = "portmap";
constexpr char kRulesHook[] = "router-rules";
constexpr int kHighestPort = 65535;

using Rules = std::span<const KOVA_PORTMAP_RULE>;
using Results = std::span<KOVA_RULE_SET_RESULT>;

int Failed(int error, int line = __builtin_LINE()) {
  RecordError(error, __builtin_FILE(), line);
  return -1;
}

Router& TheRouter() {
  static Router router;  // what was found, or not found, serves the later calls of the process
  return router;
}

KovaArgs HookArguments(const std::string& set, Rules rules) {
  KovaArgs args = {set};
  for (const KOVA_PORTMAP_RULE& rule : rules) {
    args.push_back(std::to_string(rule.router_port) + ":" + std::to_string(rule.device_port));
  }
  return args;
}

// One line "PORT ok" per confirmed rule, in rule order; anything else is a refusal.
void ReadHookResults(const std::string& output, Rules rules, Results results) {
  std::istringstream lines(output);
  for (size_t i = 0; i < rules.size(); ++i) {
    std::string line;
    std::getline(lines, line);
    const bool granted = line == std::to_string(rules[i].router_port) + " ok";
    results[i] = {rules[i].router_port, static_cast<unsigned char>(granted ? 1 : 0)};
  }
}

int SetOnRouter(const std::string& set, Rules rules, Results results) {
  std::string output;
  if (const auto hook = RunHook(kRulesHook, HookArguments(set, rules), &output)) {
    if (*hook == 0) ReadHookResults(output, rules, results);
    return *hook;
  }
  return rules.empty() ? TheRouter().Remove(set, RecordedPorts(set))
                       : TheRouter().Replace(set, rules, results);
}

bool IsPort(int port) { return port > 0 && port <= kHighestPort; }

bool AreValid(const char* name, const KOVA_PORTMAP_RULE* rules, int count) {
  if (name == nullptr || *name == '\0' || count < 0 || (count > 0) != (rules != nullptr)) {
    return false;
  }
  return std::all_of(rules, rules + count, [](const KOVA_PORTMAP_RULE& rule) {
    return IsPort(rule.router_port) && IsPort(rule.device_port);
  });
}

}  // namespace
}  // namespace kova::platform

using namespace kova::platform;

int KLibKovaPortMapRouterDetect() {
  if (const auto hook = RunHook("router-detect", {})) return *hook;
  return TheRouter().Search() ? 0 : Failed(ENODEV);
}

int KLibKovaPortMapRulesSet(KOVA_RULE_SET_RESULT* results, int result_count, const char* name,
                            const KOVA_PORTMAP_RULE* rules, int rule_count) {
  if (!AreValid(name, rules, rule_count) || result_count < 0 ||
      (result_count > 0 && results == nullptr)) {
    return Failed(EINVAL);
  }
  const Rules wanted(rules, static_cast<size_t>(rule_count));
  std::vector<KOVA_RULE_SET_RESULT> found(wanted.size());
  if (SetOnRouter(name, wanted, found) != 0) return Failed(EHOSTUNREACH);
  std::copy_n(found.begin(), std::min(found.size(), static_cast<size_t>(result_count)), results);
  if (const int error = StoreRuleSet(name, wanted); error != 0) {
    PlatformLog(LOG_ERR, kTag, __LINE__, "Failed to record port map rules [%s]: %s",
                kPortmapRecordPath, std::strerror(error));
  }
  return 0;
}

int KLibKovaPortMapRulesConfigSet(const char* name, const KOVA_PORTMAP_RULE* rules,
                                  int rule_count) {
  if (!AreValid(name, rules, rule_count)) return Failed(EINVAL);
  const int error = StoreRuleSet(name, Rules(rules, static_cast<size_t>(rule_count)));
  return error == 0 ? 0 : Failed(error);
}
