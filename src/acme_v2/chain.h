// The chain of an issued certificate.
#pragma once

#include <json/value.h>

#include <string>

#include "acme_v2/session.h"

namespace kova {

// Downloads it for a finalized order (PEM, leaf first). When its topmost certificate is not issued
// by the common name `preferred` (empty: any will do), the first of the CA's alternates that is
// takes its place; when there is none, the system log says so. Throws SLError 200.
std::string DownloadChain(Session& session, const Json::Value& order, const std::string& preferred);

}  // namespace kova
