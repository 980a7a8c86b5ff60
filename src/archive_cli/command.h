// What a command of kova-archive is: its place in the usage text, its options and what it does.
#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "base/status.h"

namespace kova::archive_cli {

// The arguments of one run, checked against the command's rules.
struct Arguments {
  std::vector<std::string> operands;
  // By name without dashes, as often as it was given; flags have no text.
  std::map<std::string, std::vector<std::string>> options;
  bool json = false;

  [[nodiscard]] bool Has(const std::string& option) const { return options.contains(option); }
  // The last one given; empty when it was not given.
  [[nodiscard]] std::string Text(const std::string& option) const;
};

struct OptionRule {
  const char* name;
  const char* value;  // what stands for it in the usage text; null for a flag
  bool required;
  const char* meaning;
  char letter = '\0';  // its short form; none when it has none
};

// What a command has to say: `text` to people, `document` to programs (--json).
struct Reply {
  std::string text;
  Json::Value document{Json::objectValue};
  std::string failure;  // not empty: the run fails for this reason, after saying the above
  std::vector<std::string> warnings{};  // else a line of standard error each
};

// Thrown by commands: one line that says what failed and why.
struct Failure {
  std::string message;
};

// Throws Failure, with the status's text behind `context`, unless it is done.
void Require(const Status& status, const std::string& context = "");

// Thrown for arguments that make no sense, by the parser and by commands.
struct UsageError {
  std::string message;
};

struct Command {
  const char* word;
  const char* operands;  // as the usage text shows them
  size_t least;          // how many operands it takes
  size_t most;
  std::vector<OptionRule> options;
  const char* summary;  // one line
  Reply (*run)(const Arguments& arguments);
};

// All of them, in the order of the usage text.
const std::vector<const Command*>& Commands();

extern const Command kList;
extern const Command kAdd;
extern const Command kRemove;
extern const Command kDefault;
extern const Command kBind;
extern const Command kUnbind;
extern const Command kDeploy;
extern const Command kCheck;
extern const Command kAccount;
extern const Command kSelfSigned;
extern const Command kObtain;
extern const Command kRenew;
extern const Command kRevoke;

}  // namespace kova::archive_cli
