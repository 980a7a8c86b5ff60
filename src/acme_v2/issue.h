// What is done with a proved order, and with the certificate that came of it.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>

#include "acme/issue_options.h"
#include "acme_v2/order.h"
#include "acme_v2/session.h"
#include "crypto/certificate_key.h"

namespace kova {

// Key, request, finalize, download, storage, as the options have them; the names are the order's,
// and the key is of the options' type. The folder that holds the certificate now: that of the
// options' certificate, or a new one. Throws SLError 200, 202 or 205, or what the CA says about an
// order that it gives up.
std::string Issue(Session& session, const Order& order, const IssueOptions& options,
                  CertificateKey& key);

// Sends the request (base64url of its DER) and, with the settings' leave, waits for a CA that takes
// its time. Returns the CA's view of the order, finalized.
Json::Value FinalizeOrder(Session& session, const Order& order, const std::string& csr);

// Downloads the chain for a finalized order (PEM, leaf first). When its topmost certificate is not
// issued by the common name `preferred` (empty: any will do), the first of the CA's alternates that
// is takes its place; when there is none, the system log says so. Throws SLError 200.
std::string DownloadChain(Session& session, const Json::Value& order, const std::string& preferred);

struct RevokeOptions {
  std::optional<int> reason{};  // of RFC 5280 (5.3.1); none is said without
  // Whether a CA is believed that it has revoked the certificate before when it says so by its
  // problem document (RFC 8555), and not by the status 409 alone.
  bool believes_problem = false;
};

// Revokes the certificate of an archive folder at the CA. Returns the text of the folder's cert.pem
// as it was then. Throws SLError 200, and std::out_of_range when it holds no PEM block.
std::string RevokeAtCa(Session& session, const std::string& folder,
                       const RevokeOptions& options = {});

// Removes the renewal record of a folder, which is then no longer renewed; its certificate stays. A
// failure is told at debug level 1 and, unless there is none, in the log.
void RemoveRenewalRecord(const std::string& folder);

// Both.
void Revoke(Session& session, const std::string& folder);

}  // namespace kova
