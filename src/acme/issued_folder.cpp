#include "acme/issued_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <iterator>

#include "base/files.h"
#include "base/sl_error.h"
#include "base/unfinished_folder.h"
#include "crypto/pem.h"

namespace kova {
namespace {

constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0400;

void MakeFolder(const char* tag, UnfinishedFolder& folder) {
  RemoveUnfinished(kArchiveRoot);
  if (!folder.Make(kArchiveRoot)) {
    // The account store's text, kept as callers know it.
    throw Error(code::kLocal, tag, "Failed to create folder for account item.");
  }
  if (chmod(folder.Path().c_str(), kFolderMode) != 0) {
    throw Error(code::kLocal, tag, "Failed to chmod.");
  }
}

void WriteFiles(const std::string& folder, const CertificatePems& pems,
                const std::string& private_key_pem, const RenewalRecord& record) {
  const std::array contents = {&pems.cert, &pems.chain, &pems.fullchain, &private_key_pem};
  static_assert(std::size(contents) + 1 == std::size(kCertificateFiles));
  for (size_t index = 0; index < std::size(contents); ++index) {
    WriteTextFile(folder + "/" + kCertificateFiles[index], *contents[index], kFileMode);
  }
  WriteRenewalRecord(folder, record);
}

void Discard(const std::string& folder) {
  for (const char* name : kCertificateFiles) unlink((folder + "/" + name).c_str());
  rmdir(folder.c_str());  // stays when it holds anything else
}

}  // namespace

std::optional<CertificatePems> SplitChain(const std::string& full_chain) {
  const size_t begin = full_chain.find(kCertificateBegin);
  const size_t end = full_chain.find(kCertificateEnd);
  if (begin == std::string::npos || end == std::string::npos || end < begin) return std::nullopt;
  const size_t next = full_chain.find(kCertificateBegin, end);
  if (next == std::string::npos) return std::nullopt;
  const size_t after = end + std::string(kCertificateEnd).size();
  return CertificatePems{full_chain.substr(begin, after - begin), full_chain.substr(next),
                         full_chain};
}

std::string SaveCertificate(const char* tag, const std::string& certificate_id,
                            const std::optional<CertificatePems>& pems,
                            const std::string& private_key_pem, const RenewalRecord& record) {
  UnfinishedFolder fresh;
  if (certificate_id.empty()) MakeFolder(tag, fresh);
  std::string folder =
      certificate_id.empty() ? fresh.Path() : std::string(kArchiveRoot) + "/" + certificate_id;
  try {
    if (!pems) throw Error(code::kLocal, tag, "The chain holds no second certificate");
    WriteFiles(folder, *pems, private_key_pem, record);
  } catch (...) {
    Discard(folder);
    throw Error(code::kLocal, tag, "Failed to save pems");
  }
  fresh.LeaveMarked();
  return folder;
}

std::string JoinNames(const std::vector<std::string>& names, const char* separator) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : separator) + name;
  return text;
}

}  // namespace kova
