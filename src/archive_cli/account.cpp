// kova-archive account: the stored ACME accounts.

#include <array>
#include <string_view>
#include <utility>

#include "archive_cli/acme_front.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/table.h"
#include "archive_cli/text.h"
#include "base/sl_error.h"
#include "lifecycle/account_change.h"
#include "lifecycle/account_list.h"

namespace kova::archive_cli {
namespace {

const char* StateOf(const StoredAccount& account) {
  if (!account.readable || !account.has_key) return "unreadable";
  return account.rollover_unfinished ? "rollover unfinished" : "ok";
}

std::vector<Cell> RowOf(const StoredAccount& account) {
  const std::string state = StateOf(account);
  return {{account.id},
          {account.directory},
          {account.contact},
          {account.version > 0 ? std::to_string(account.version) : "-"},
          {Joined(account.certificates)},
          {state, state == "ok" ? Colour::kNone : Colour::kRed}};
}

Json::Value ToJson(const StoredAccount& account) {
  Json::Value object(Json::objectValue);
  object["id"] = account.id;
  object["directory"] = account.directory;
  object["contact"] = account.contact;
  object["version"] = account.version;
  object["account_url"] = account.url;
  object["certificates"] = JsonArray(account.certificates);
  object["state"] = StateOf(account);
  return object;
}

Reply List(const Arguments& /*arguments*/) {
  static const std::vector<Column> columns = {
      {"ID"},         {"CA", false, 12},           {"CONTACT", false, 12},
      {"ACME", true}, {"CERTIFICATES", false, 12}, {"STATE"}};
  Reply reply;
  Json::Value& accounts = reply.document["accounts"] = Json::Value(Json::arrayValue);
  std::vector<std::vector<Cell>> rows;
  for (const StoredAccount& account : StoredAccounts()) {
    accounts.append(ToJson(account));
    rows.push_back(RowOf(account));
  }
  reply.text = rows.empty() ? "No account is stored.\n"
                            : RenderTable(columns, std::move(rows), Screen::OfStdout());
  return reply;
}

Reply Update(const Arguments& arguments) {
  const std::string& id = arguments.operands[1];
  const std::string mail = arguments.Text("mail");
  if (mail.empty() || !IsWriting(mail)) throw Failure{"[" + mail + "] is no e-mail address"};
  UpdateAccount(id, mail, ReadSettings());
  Reply reply;
  reply.text = id + " has the contact " + mail + " now.\n";
  reply.document["id"] = id;
  reply.document["contact"] = mail;
  return reply;
}

Reply Roll(const Arguments& arguments) {
  const std::string& id = arguments.operands[1];
  const bool finished = RolloverAccount(id, ReadSettings()) == Rollover::kFinished;
  Reply reply;
  reply.text =
      id + (finished ? " has the new key of an earlier run now.\n" : " has a new key now.\n");
  reply.document["id"] = id;
  reply.document["finished_earlier"] = finished;
  return reply;
}

Reply Deactivate(const Arguments& arguments) {
  const std::string& id = arguments.operands[1];
  const std::vector<std::string> certificates =
      DeactivateAccount(id, arguments.Has("force"), ReadSettings());
  Reply reply;
  reply.text = id + " is deactivated and no longer stored.\n";
  if (!certificates.empty()) {
    reply.text +=
        "To be renewed again, these have to be obtained anew: " + Joined(certificates) + "\n";
  }
  reply.document["id"] = id;
  reply.document["certificates"] = JsonArray(certificates);
  return reply;
}

struct Action {
  std::string_view word;
  size_t operands;          // itself included
  std::string_view option;  // the one that it takes, or empty
  bool required;
  Reply (*run)(const Arguments& arguments);
};

constexpr std::array<Action, 4> kActions = {{{"list", 1, "", false, List},
                                             {"update", 2, "mail", true, Update},
                                             {"rollover", 2, "", false, Roll},
                                             {"deactivate", 2, "force", false, Deactivate}}};

const Action& ActionOf(const std::string& word) {
  for (const Action& action : kActions) {
    if (action.word == word) return action;
  }
  throw UsageError{"unknown action " + word};
}

void RequireFitting(const Action& action, const Arguments& arguments) {
  const std::string word(action.word);
  if (arguments.operands.size() < action.operands) throw UsageError{word + " needs an ID"};
  if (arguments.operands.size() > action.operands) throw UsageError{"too many arguments"};
  for (const char* option : {"mail", "force"}) {
    if (arguments.Has(option) && action.option != option) {
      throw UsageError{word + " takes no --" + option};
    }
  }
  if (action.required && !arguments.Has(std::string(action.option))) {
    throw UsageError{word + " needs --" + std::string(action.option)};
  }
}

Reply Run(const Arguments& arguments) {
  const Action& action = ActionOf(arguments.operands[0]);
  RequireFitting(action, arguments);
  RequireRoot();  // nobody else can see what is stored
  if (action.operands > 1) RequirePlainId(arguments.operands[1]);
  try {
    return action.run(arguments);
  } catch (const SLError& error) {
    if (error.code == code::kLocal) throw Failure{error.message};
    Reply reply;
    Explain(reply, error, {});
    return reply;
  }
}

}  // namespace

const Command kAccount = {
    "account",
    "ACTION [ID]",
    1,
    2,
    {{"mail", "M", false, "update: the new e-mail address"},
     {"force", nullptr, false, "deactivate: also while certificates renew with it"}},
    "Look after stored ACME accounts: list, update, rollover, deactivate",
    Run};

}  // namespace kova::archive_cli
