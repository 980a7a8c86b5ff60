// What a CA issued, for both protocol versions: whether it is what was asked for, and its storage
// in one folder of the archive (docs/formats.md).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "acme/renewal_record.h"

namespace kova {

// The chain (PEM, leaf first) must hold certificates and nothing else; the first has the key's
// public half and every name, and is valid now; each of the others issued the one before it.
// Otherwise throws SLError 200 "new-cert: issued certificate does not fit. (WHY)" with `tag` as the
// file, after one line in the system log.
void RequireFitting(const char* tag, const std::string& chain_pem,
                    const std::string& private_key_pem, const std::vector<std::string>& names);

struct CertificatePems {
  std::string cert;       // the leaf
  std::string chain;      // what follows it
  std::string fullchain;  // both
};

// Splits a downloaded chain after its first certificate, whose text then ends without the line feed
// that follows it. None when there is no second certificate.
std::optional<CertificatePems> SplitChain(const std::string& full_chain);

// Writes cert.pem, chain.pem, fullchain.pem, privkey.pem and renew.json (0400 each, in that order)
// and returns the folder: that of `certificate_id`, which must exist, or a new one (0700) when the
// id is empty. A new one is left marked (base/unfinished_folder.h): KeepUnfinished makes it last,
// else the next run removes it; what killed runs left goes first. Failures are SLError 202 with
// `tag` as the file: "Failed to create folder for account item.", "Failed to chmod.", or "Failed to
// save pems" when `pems` is none or a file could not be written; the five files are then removed,
// and the folder unless it holds others.
std::string SaveCertificate(const char* tag, const std::string& certificate_id,
                            const std::optional<CertificatePems>& pems,
                            const std::string& private_key_pem, const RenewalRecord& record);

// The names as one text for the renewal record.
std::string JoinNames(const std::vector<std::string>& names, const char* separator);

}  // namespace kova
