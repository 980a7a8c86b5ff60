#include "archive_cli/obtain_request.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "archive/index.h"
#include "archive/paths.h"
#include "archive_cli/acme_front.h"
#include "archive_cli/changes.h"
#include "archive_cli/entries.h"
#include "archive_cli/text.h"
#include "crypto/certificate_key.h"
#include "lifecycle/issue.h"
#include "lifecycle/name_check.h"
#include "lifecycle/names.h"
#include "platform/files.h"

namespace kova::archive_cli {
namespace {

struct Authority {
  std::string_view production;
  std::string_view staging;
};
// CAs that are known to have both.
constexpr std::array<Authority, 1> kAuthorities = {
    {{kProductionDirectory, "https://acme-staging-v02.api.letsencrypt.org/directory"}}};

// Empty when none is known.
std::string StagingOf(const std::string& server) {
  for (const Authority& authority : kAuthorities) {
    if (server == authority.production || server == authority.staging) {
      return std::string(authority.staging);
    }
  }
  return {};
}

void CheckKeyType(const Arguments& arguments) {
  const std::string type = arguments.Text("key-type");
  if (!arguments.Has("key-type") || ParseKeyType(type)) return;
  throw UsageError{"there is no key type [" + type +
                   "], only rsa2048, rsa3072, rsa4096, ec256, ec384"};
}

void CheckBind(const Arguments& arguments) {
  const bool binds = arguments.Has("bind");
  for (const char* name : {"owner", "display-name"}) {
    if (binds == arguments.Has(name)) continue;
    throw UsageError{binds ? std::string("--bind needs --") + name
                           : std::string("--") + name + " is for --bind"};
  }
  if (!binds && arguments.Has("reload")) throw UsageError{"--reload is for --bind"};
  const std::string title = arguments.Text("bind");
  if (!binds || title.find('/') != std::string::npos) return;
  throw UsageError{"--bind takes SUBSCRIBER/SERVICE, not [" + title + "]"};
}

// What belongs together, and what excludes what.
void CheckOptions(const Arguments& arguments) {
  if (arguments.Has("server") && arguments.Has("staging")) {
    throw UsageError{"--server and --staging exclude each other"};
  }
  CheckBind(arguments);
  CheckKeyType(arguments);
}

std::vector<std::string> NamesOf(const Arguments& arguments) {
  std::vector<std::string> names;
  for (const std::string& text : arguments.options.at("domain")) {
    for (const std::string& name : SplitDomainList(text, ',')) names.push_back(name);
  }
  const std::string why = WhyNoNames(names);
  if (!why.empty()) throw Failure{why};
  return TidyNames(names);
}

std::string MailOf(const Arguments& arguments) {
  std::string mail = arguments.Text("mail");
  const std::string why = WhyNoMail(mail);
  if (!why.empty()) throw Failure{"[" + mail + "] is no e-mail address: " + why};
  return mail;
}

std::string ServerOf(const Arguments& arguments, const Settings& settings) {
  std::string server = arguments.Has("server") ? arguments.Text("server") : settings.server;
  if (arguments.Has("staging")) {
    std::string staging = StagingOf(server);
    if (!staging.empty()) return staging;
    throw Failure{"no staging directory of [" + server + "] is known: name it with --server"};
  }
  const std::string why = WhyNoDirectory(server);
  if (!why.empty()) throw Failure{"[" + server + "] is no directory URL: " + why};
  return server;
}

// Empty when it was not given; else a text that can be kept and told.
std::string ChosenText(const Arguments& arguments, const char* option, const char* what) {
  std::string text = arguments.Text(option);
  if (arguments.Has(option) && text.empty()) throw Failure{std::string(what) + " is empty"};
  if (IsWriting(text)) return text;
  throw Failure{std::string(what) + " [" + text +
                "] holds a control character or bytes that are no UTF-8"};
}

IssueOptions OptionsOf(const Arguments& arguments, const Settings& settings) {
  IssueOptions options;
  options.names = NamesOf(arguments);
  options.contact = MailOf(arguments);
  options.server = ServerOf(arguments, settings);
  options.profile = ChosenText(arguments, "profile", "the profile");
  options.requires_profile = arguments.Has("profile");
  options.preferred_chain = ChosenText(arguments, "preferred-chain", "the preferred chain");
  std::optional<std::string> key_type;
  if (arguments.Has("key-type")) key_type = arguments.Text("key-type");
  ChooseKeyType(key_type, settings, options);
  return options;
}

// "SUBSCRIBER/SERVICE" and its companions, as bind has them.
Arguments BindArguments(const Arguments& arguments) {
  const std::string title = arguments.Text("bind");
  const size_t slash = title.find('/');
  Arguments bind;
  bind.options["subscriber"] = {title.substr(0, slash)};
  bind.options["service"] = {title.substr(slash + 1)};
  for (const char* name : {"owner", "display-name"}) bind.options[name] = {arguments.Text(name)};
  return bind;
}

// A missing index is made when the certificate is entered; one that cannot be read never is.
Json::Value Index() {
  return KLIBCFileExist(cert_archive::kIndexPath) ? ReadIndexOrFail()
                                                  : Json::Value(Json::objectValue);
}

std::optional<Json::Value> ServiceOf(const Arguments& arguments) {
  const Json::Value info = Index();
  if (!arguments.Has("bind")) return std::nullopt;
  Json::Value service = WantedService(BindArguments(arguments));
  RequireOwnFolder(info, service);
  return service;
}

}  // namespace

ObtainRequest ObtainRequestOf(const Arguments& arguments, const Settings& settings) {
  CheckOptions(arguments);
  RequireRoot();
  ObtainRequest request;
  request.options = OptionsOf(arguments, settings);
  request.is_staging = request.options.server == StagingOf(request.options.server);
  if (arguments.Has("desc")) {
    request.description = arguments.Text("desc");
    if (!IsWriting(*request.description)) {
      throw Failure{"the description holds a control character or bytes that are no UTF-8"};
    }
  }
  request.becomes_default = arguments.Has("default");
  request.service = ServiceOf(arguments);
  if (arguments.Has("reload")) request.reload = ReloadExample::Named(arguments.Text("reload"));
  return request;
}

}  // namespace kova::archive_cli
