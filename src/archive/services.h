// The services that use a certificate.
#pragma once

#include <json/value.h>

#include <string>

namespace kova::cert_archive {

// The certificate's "services" array out of the index, after the integrity test (which may refill
// the certificate's folder). False, with messages, when there is none.
[[nodiscard]] bool GetServices(const std::string& id, Json::Value& services);

}  // namespace kova::cert_archive
