// The index as the commands look at it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "archive_cli/command.h"

namespace kova::archive_cli {

// Throws Failure unless the id is one path component that can be written down. Before anything is
// touched.
void RequirePlainId(const std::string& id);

// The id that is meant by an id, or by the path of a folder in the archive as new-cert prints it.
// As it stands when it is neither.
std::string IdOf(const std::string& id_or_folder);

// Throws Failure unless the index has a certificate of that id.
void RequireEntry(const Json::Value& info, const std::string& id);

// The whole index. Throws Failure when it cannot be read.
Json::Value ReadIndexOrFail();

// A service as the options --subscriber and --service name it, with nothing else in it. Throws
// Failure for names that would lead elsewhere than to a folder of their own.
Json::Value NamedService(const Arguments& arguments, bool is_package);

// Throws Failure when the index holds a service of the same subscriber whose name differs from this
// one's only by ".bak" or ".temp" at its end.
void RequireOwnFolder(const Json::Value& info, const Json::Value& service);

// "subscriber/service".
std::string ServiceTitle(const Json::Value& service);

// The element of the certificate's list that is this service, or null.
Json::Value FindService(const Json::Value& info, const std::string& id, const Json::Value& service);

// The certificates that list the service, in the order of the index.
std::vector<std::string> CertificatesWith(const Json::Value& info, const Json::Value& service);

// The names of what a certificate's list holds, elements without names left out.
std::vector<std::string> ServiceTitles(const Json::Value& info, const std::string& id);

Json::Value JsonArray(const std::vector<std::string>& texts);
std::string Joined(const std::vector<std::string>& texts);  // ", " between them

}  // namespace kova::archive_cli
