// The mark of services whose reload script was not content: `reload_failed` in the certificate's
// folder (docs/formats.md), for kova-archive list.
#pragma once

#include <json/value.h>

#include <string>

#include "archive/service_object.h"

namespace kova::cert_archive {

// Marks the service of that certificate when its reload script ended with a positive status, which
// is one warning in the log as well; takes the mark away for a status of 0. `id` must be a plain
// name, and no lock of the certificate be held.
void NoteReload(const std::string& id, const Service& service, int status);

// The marked services: "SUBSCRIBER/SERVICE" to the status. An object, whatever the file holds.
Json::Value ReloadFailures(const std::string& id);

}  // namespace kova::cert_archive
