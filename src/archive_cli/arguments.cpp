#include "archive_cli/arguments.h"

#include <getopt.h>

#include <algorithm>

namespace kova::archive_cli {
namespace {

constexpr OptionRule kJson = {"json", nullptr, false, "print the result as JSON"};
constexpr OptionRule kHelp = {"help", nullptr, false, "show this text", 'h'};

std::vector<OptionRule> AllRules(const Command& command) {
  std::vector<OptionRule> rules = command.options;
  rules.push_back(kJson);
  rules.push_back(kHelp);
  return rules;
}

std::vector<option> LongOptions(const std::vector<OptionRule>& rules) {
  std::vector<option> options;
  options.reserve(rules.size() + 1);
  for (const OptionRule& rule : rules) {
    options.push_back(
        {rule.name, rule.value == nullptr ? no_argument : required_argument, nullptr, 0});
  }
  options.push_back({nullptr, 0, nullptr, 0});
  return options;
}

// The short forms as the library takes them; a colon first: a missing value is told apart.
std::string Letters(const std::vector<OptionRule>& rules) {
  std::string letters = ":";
  for (const OptionRule& rule : rules) {
    if (rule.letter == '\0') continue;
    letters += rule.letter;
    if (rule.value != nullptr) letters += ':';
  }
  return letters;
}

std::string Padded(std::string text, size_t width) {
  text.resize(std::max(width, text.size() + 2), ' ');
  return text;
}

std::string Spelled(const OptionRule& rule) {
  return std::string("--") + rule.name +
         (rule.value == nullptr ? "" : std::string(" ") + rule.value);
}

// With its short form at the end: tab completion looks for the long one at the beginning.
std::string Explained(const OptionRule& rule) {
  const std::string letter = rule.letter == '\0' ? "" : std::string(" (-") + rule.letter + ")";
  return "  " + Padded(Spelled(rule), 28) + rule.meaning + letter + "\n";
}

std::string LastWord(const std::vector<char*>& argv) {
  return argv[static_cast<size_t>(optind - 1)];
}

// A letter may be one of several behind one dash; the library has not left their word yet.
std::string RefusedOption(const std::vector<char*>& argv) {
  return optopt > ' ' ? std::string("-") + static_cast<char>(optopt) : LastWord(argv);
}

// The words as the library takes them: the program's name first, null last.
std::vector<char*> WordsForLibrary(const std::vector<std::string>& words) {
  std::vector<char*> argv = {const_cast<char*>(kProgram)};
  argv.reserve(words.size() + 2);
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  return argv;
}

// `found` is what the library says of an option: its letter, or 0 and its place.
const char* NameOf(const std::vector<OptionRule>& rules, int found, int place) {
  if (found == 0) return rules[static_cast<size_t>(place)].name;
  const auto has_letter = [found](const OptionRule& rule) { return rule.letter == found; };
  return std::find_if(rules.begin(), rules.end(), has_letter)->name;
}

// The library moves the operands behind the options.
Arguments Sorted(const std::vector<OptionRule>& rules, std::vector<char*> argv) {
  const std::vector<option> options = LongOptions(rules);
  const int argc = static_cast<int>(argv.size()) - 1;
  Arguments arguments;
  optind = 0;  // the library starts afresh
  opterr = 0;
  const std::string letters = Letters(rules);
  int place = 0;
  int found = 0;
  while ((found = getopt_long(argc, argv.data(), letters.c_str(), options.data(), &place)) != -1) {
    if (found == ':') throw UsageError{"missing value of " + LastWord(argv)};
    if (found == '?') throw UsageError{"unknown option " + RefusedOption(argv)};
    arguments.options[NameOf(rules, found, place)].emplace_back(optarg == nullptr ? "" : optarg);
  }
  arguments.operands.assign(argv.begin() + optind, argv.begin() + argc);
  return arguments;
}

void CheckOperands(const Command& command, size_t count) {
  if (count >= command.least && count <= command.most) return;
  throw UsageError{count < command.least ? std::string("missing ") + command.operands
                                         : "too many arguments"};
}

void CheckRequired(const Command& command, const Arguments& arguments) {
  for (const OptionRule& rule : command.options) {
    if (rule.required && !arguments.Has(rule.name)) {
      throw UsageError{"missing " + Spelled(rule)};
    }
  }
}

}  // namespace

std::string Arguments::Text(const std::string& option) const {
  const auto found = options.find(option);
  return found == options.end() ? std::string() : found->second.back();
}

Arguments ParseArguments(const Command& command, const std::vector<std::string>& words,
                         bool& help) {
  Arguments arguments = Sorted(AllRules(command), WordsForLibrary(words));
  arguments.json = arguments.Has(kJson.name);
  help = arguments.Has(kHelp.name);
  if (help) return arguments;
  CheckOperands(command, arguments.operands.size());
  CheckRequired(command, arguments);
  return arguments;
}

std::string Usage() {
  std::string text =
      "Usage: kova-archive COMMAND [ARGUMENTS] [--json] [--help]\n\n"
      "Looks after the certificate archive and the services that use it.\n\n";
  for (const Command* command : Commands()) {
    text += "  " + Padded(std::string(command->word) + " " + command->operands, 20) +
            command->summary + "\n";
  }
  return text +
         "\nkova-archive COMMAND --help shows the options of a command,\n"
         "kova-archive --version the version of the program.\n";
}

std::string Usage(const Command& command) {
  std::string text = std::string("Usage: kova-archive ") + command.word;
  if (*command.operands != '\0') text += std::string(" ") + command.operands;
  for (const OptionRule& rule : command.options) {
    text += rule.required ? " " + Spelled(rule) : " [" + Spelled(rule) + "]";
  }
  text += std::string(" [--json]\n\n") + command.summary + ".\n\n";
  for (const OptionRule& rule : AllRules(command)) {
    text += Explained(rule);
  }
  return text;
}

}  // namespace kova::archive_cli
