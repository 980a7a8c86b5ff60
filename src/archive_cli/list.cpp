// kova-archive list: the index for eyes, or for programs.

#include <algorithm>
#include <ctime>
#include <functional>
#include <utility>

#include "archive/paths.h"
#include "archive/reload_mark.h"
#include "archive/service_object.h"
#include "archive_cli/command.h"
#include "archive_cli/entries.h"
#include "archive_cli/facts.h"
#include "archive_cli/table.h"
#include "archive_cli/troubles.h"
#include "base/json.h"
#include "base/renewal_settings.h"

namespace kova::archive_cli {
namespace {

// One certificate of the index.
struct Listed {
  std::string id;
  bool is_default = false;
  Json::Value entry;
  std::vector<std::string> services;
  CertificateFacts facts;
  std::vector<std::string> flags;
  RenewalHistory renewals;
  Json::Value reloads{Json::objectValue};  // the marked services
  std::vector<std::string> troubles;       // a line each
};

void LookAtTroubles(const RenewalSettings& settings, Listed& listed) {
  listed.renewals = RememberedRenewals(listed.id, settings);
  listed.reloads = cert_archive::ReloadFailures(listed.id);
  listed.troubles = ReloadFailuresOf(listed.reloads, listed.services);
  if (!listed.troubles.empty()) listed.flags.emplace_back("reload-failed");
  const std::string failure = RenewalFailure(listed.renewals);
  if (failure.empty()) return;
  listed.flags.emplace_back("failing");
  listed.troubles.insert(listed.troubles.begin(), failure);
}

void LookAtFolder(const RenewalSettings& settings, std::int64_t now, Listed& listed) {
  const std::string folder = cert_archive::CertificateFolder(listed.id);
  listed.facts = ReadFacts(folder + "/cert.pem", DueRule::Of(settings), now);
  listed.flags = FolderFlags(folder);
  LookAtTroubles(settings, listed);
}

// Hands over one certificate at a time, since an index may list very many.
void ForEach(std::int64_t now, const std::function<void(const Listed&)>& take) {
  const Json::Value info = ReadIndexOrFail();
  const std::string default_id = cert_archive::DefaultCertificateId();
  const RenewalSettings settings = RenewalSettings::Read();
  for (const std::string& id : info.getMemberNames()) {
    Listed listed;
    listed.id = id;
    listed.is_default = id == default_id;
    listed.entry = info[id];
    listed.services = ServiceTitles(info, id);
    // An entry that is no certificate is shown, and never becomes a path.
    if (cert_archive::IsPlainName(id) && info[id].isObject()) {
      LookAtFolder(settings, now, listed);
    } else {
      listed.flags = {"invalid"};
    }
    take(listed);
  }
}

Colour ColourOf(State state) {
  switch (state) {
    case State::kExpired:
    case State::kUnreadable:
      return Colour::kRed;
    case State::kDue:
      return Colour::kYellow;
    case State::kValid:
      break;
  }
  return Colour::kNone;
}

Colour ColourOf(const std::vector<std::string>& flags) {
  const bool bad = std::any_of(flags.begin(), flags.end(), [](const std::string& flag) {
    return flag != "acme" && flag != "self-signed";
  });
  return bad ? Colour::kRed : Colour::kNone;
}

std::vector<Cell> RowOf(const Listed& listed, std::int64_t now) {
  const CertificateFacts& facts = listed.facts;
  const bool readable = facts.state != State::kUnreadable;
  const Colour colour = ColourOf(facts.state);
  return {{listed.id},
          {listed.is_default ? "*" : ""},
          {Joined(facts.names)},
          {facts.issuer},
          {readable ? DateText(facts.not_after) : "-", colour},
          {readable ? std::to_string(DaysLeft(facts, now)) : "-", colour},
          {Word(facts.state), colour},
          {Joined(listed.services)},
          {Joined(listed.flags), ColourOf(listed.flags)}};
}

std::string TableOf(std::vector<std::vector<Cell>> rows) {
  static const std::vector<Column> columns = {{"ID"},
                                              {"DEF"},
                                              {"NAMES", false, 12},
                                              {"ISSUER", false, 8},
                                              {"EXPIRES"},
                                              {"DAYS", true},
                                              {"STATE"},
                                              {"SERVICES", false, 10},
                                              {"FLAGS"}};
  return RenderTable(columns, std::move(rows), Screen::OfStdout());
}

// The table, and the troubles below it.
std::string Text(std::int64_t now) {
  std::vector<std::vector<Cell>> rows;
  std::string troubles;
  ForEach(now, [&](const Listed& listed) {
    rows.push_back(RowOf(listed, now));
    for (const std::string& trouble : listed.troubles)
      troubles += listed.id + ": " + trouble + "\n";
  });
  return rows.empty() ? "The index holds no certificate.\n" : TableOf(std::move(rows)) + troubles;
}

Json::Value ServicesToJson(const Listed& listed) {
  Json::Value array(Json::arrayValue);
  const Json::Value& services = Member(listed.entry, "services");
  if (!services.isArray()) return array;
  for (const Json::Value& element : services) {
    if (!cert_archive::IsSameService(element, element)) continue;
    Json::Value service;
    for (const char* key : {"subscriber", "service", "display_name", "owner"}) {
      service[key] = TextMember(element, key);
    }
    service["package"] = Member(element, "isPkg") == Json::Value(true);
    service["reload_status"] = listed.reloads.get(ServiceTitle(element), 0);
    array.append(service);
  }
  return array;
}

Json::Value ToJson(const Listed& listed, std::int64_t now) {
  const CertificateFacts& facts = listed.facts;
  const bool readable = facts.state != State::kUnreadable;
  Json::Value object;
  object["id"] = listed.id;
  object["default"] = listed.is_default;
  object["desc"] = TextMember(listed.entry, "desc");
  object["names"] = JsonArray(facts.names);
  object["issuer"] = facts.issuer;
  object["not_after"] = readable ? Json::Value(TimeText(facts.not_after)) : Json::Value();
  object["days_left"] = readable ? Json::Value(Json::Int64(DaysLeft(facts, now))) : Json::Value();
  object["state"] = Word(facts.state);
  object["services"] = ServicesToJson(listed);
  object["flags"] = JsonArray(listed.flags);
  const bool remembered = !listed.renewals.last_attempt.empty() || listed.renewals.advice;
  object["renewal"] = remembered ? kova::ToJson(listed.renewals) : Json::Value();
  return object;
}

Json::Value Document(std::int64_t now) {
  Json::Value document(Json::objectValue);
  Json::Value& certificates = document["certificates"] = Json::Value(Json::arrayValue);
  ForEach(now, [&](const Listed& listed) { certificates.append(ToJson(listed, now)); });
  return document;
}

Reply Run(const Arguments& arguments) {
  const std::int64_t now = std::time(nullptr);
  Reply reply;
  if (arguments.json) {
    reply.document = Document(now);
  } else {
    reply.text = Text(now);
  }
  return reply;
}

}  // namespace

const Command kList = {"list", "", 0, 0, {}, "Show the certificates of the index", Run};

}  // namespace kova::archive_cli
