// A certificate of the archive: its id, and its folder, which the id names.
#pragma once

#include <string>

#include "archive/paths.h"

namespace kova {

struct ArchivedCertificate {
  std::string id;
  std::string folder;

  static ArchivedCertificate OfId(const std::string& id) {
    return {id, cert_archive::CertificateFolder(id)};
  }
};

}  // namespace kova
