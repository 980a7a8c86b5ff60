#include "self_signed/mkcert_config.h"

#include <filesystem>

#include "base/log.h"
#include "platform/error.h"
#include "platform/file_writer.h"
#include "platform/process.h"

namespace kova::mkcert {
namespace {

constexpr mode_t kConfigMode = 0644;
constexpr size_t kValueColumn = 32;

constexpr char kCaExtensions[] =
    "extensions = x509v3\n"
    "[ x509v3 ]\n"
    "subjectAltName   = email:copy\n"
    "basicConstraints = CA:true,pathlen:0\n"
    "nsComment        = \"mod_ssl generated custom CA certificate\"\n"
    "nsCertType       = sslCA\n";

constexpr char kServerExtensions[] =
    "extensions = x509v3\n"
    "[ x509v3 ]\n"
    "subjectAltName   = email:copy\n"
    "nsComment        = \"mod_ssl generated custom server certificate\"\n"
    "nsCertType       = server\n"
    "keyUsage         = critical, digitalSignature, keyEncipherment\n"
    "extendedKeyUsage = serverAuth, clientAuth\n";

constexpr char kRequestHead[] =
    "[ req ]\n"
    "default_bits                    = 1024\n"
    "distinguished_name              = req_DN\n"
    "prompt                          = no\n"
    "[ req_DN ]\n";

struct SubjectField {
  const char* name;
  std::string Subject::*value;
};

constexpr SubjectField kSubjectFields[] = {
    {"countryName", &Subject::country},
    {"stateOrProvinceName", &Subject::state},
    {"localityName", &Subject::locality},
    {"0.organizationName", &Subject::organization},
    {"organizationalUnitName", &Subject::organizational_unit},
    {"commonName", &Subject::common_name},
    {"emailAddress", &Subject::email},
};

bool Write(const std::string& path, const std::string& content) {
  const int error = platform::ReplaceFile(path, content, kConfigMode);
  if (error != 0) platform::RecordError(error);
  return error == 0;
}

Status WriteExtensions(const std::string& path, const std::string& content) {
  if (Status made = MakeParentDirectory(path); !made) {
    LogError(kTag, "generate directory failed");
    return made;
  }
  if (Write(path, content)) return {};
  LogError(kTag, "fopen %s failed%s", path.c_str(), ErrorTriple().c_str());
  return Status::FailedCall("Failed to write", path);
}

// A second subjectAltName below the first one, on purpose; the tool uses the last. Empty when there
// is nobody to name.
std::string AliasLine(const KOVA_SZ_LIST& aliases) {
  std::string names;
  for (const std::string& alias : aliases.items) {
    if (alias.empty()) continue;
    if (!names.empty()) names += ", ";
    names += (BlKLIBIsIpAddr(alias) ? "IP:" : "DNS:") + alias;
  }
  return names.empty() ? names : "subjectAltName = \"" + names + "\"\n";
}

std::string SubjectLines(const Subject& subject) {
  std::string lines;
  for (const SubjectField& field : kSubjectFields) {
    const std::string& value = subject.*field.value;
    if (value.empty()) continue;
    std::string name = field.name;
    name.resize(kValueColumn, ' ');
    lines.append(name).append("= '").append(value).append("'\n");
  }
  return lines;
}

}  // namespace

Status MakeParentDirectory(const std::string& path) {
  if (path.empty()) {
    LogError(kTag, "Failed to generate directory with invalid parameters");
    return Status::Failed("Failed to generate directory with invalid parameters");
  }
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  const ScopedUmask open_folders(kFolderUmask);
  if (KLIBCExec("/bin/mkdir", {"-p", parent.empty() ? "." : parent.string()}) == 0) return {};
  LogError(kTag, "Exec mkdir failed");
  return Status::Failed("Exec mkdir failed");
}

Status WriteCaExtensionFile(const std::string& path) {
  if (path.empty()) {
    LogError(kTag, "CA CNF name is null or empty.%s", ErrorTriple().c_str());
    return Status::FailedCall("CA CNF name is null or empty", "");
  }
  return WriteExtensions(path, kCaExtensions);
}

Status WriteServerExtensionFile(const std::string& path, const KOVA_SZ_LIST* aliases) {
  if (path.empty()) {
    LogError(kTag, "Server CNF name is null or empty.%s", ErrorTriple().c_str());
    return Status::FailedCall("Server CNF name is null or empty", "");
  }
  if (aliases == nullptr) {
    LogError(kTag, "alias list is null");
    return Status::Failed("alias list is null");
  }
  return WriteExtensions(path, kServerExtensions + AliasLine(*aliases));
}

Status WriteRequestConfig(const std::string& path, const Subject* subject) {
  if (path.empty() || subject == nullptr) {
    LogError(kTag, "modifyCsrCfg sanity failed.%s", ErrorTriple().c_str());
    return Status::FailedCall("modifyCsrCfg sanity failed", "");
  }
  if (Status made = MakeParentDirectory(path); !made) {
    LogError(kTag, "generate directory failed");
    return made;
  }
  if (Write(path, kRequestHead + SubjectLines(*subject))) return {};
  LogError(kTag, "Open %s failed%s", path.c_str(), ErrorTriple().c_str());
  return Status::FailedCall("Failed to write", path);
}

}  // namespace kova::mkcert
