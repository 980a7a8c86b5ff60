// Changes of the archive that more than one command makes. All throw Failure.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "archive_cli/command.h"

namespace kova::archive_cli {

// Enters a folder of the archive in the index (add.cpp). False when it is there already, and stays
// as it is.
bool AddToIndex(const std::string& id, const std::optional<std::string>& description);

// Makes a certificate of the index the default one (default.cpp).
void SetDefault(const std::string& id);

// The service that the options --subscriber, --service, --display-name, --owner and --package
// describe, before anything is touched (bind.cpp).
Json::Value WantedService(const Arguments& arguments);

// Gives that service to a certificate of the index (bind.cpp). Returns the certificate that had it;
// empty when none had.
std::string GiveService(const std::string& id, const Json::Value& wanted);

}  // namespace kova::archive_cli
