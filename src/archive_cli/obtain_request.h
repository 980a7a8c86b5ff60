// What kova-archive obtain is asked for.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "acme/issue_options.h"
#include "archive_cli/command.h"
#include "archive_cli/reload_example.h"
#include "base/settings.h"

namespace kova::archive_cli {

struct ObtainRequest {
  IssueOptions options;
  bool is_staging = false;  // of a CA whose certificates nobody trusts
  std::optional<std::string> description;
  bool becomes_default = false;
  std::optional<Json::Value> service;  // as the index shall have it
  std::optional<ReloadExample> reload;
};

// Throws UsageError or Failure for everything that can be refused before a CA is asked.
ObtainRequest ObtainRequestOf(const Arguments& arguments, const Settings& settings);

}  // namespace kova::archive_cli
