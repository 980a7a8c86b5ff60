#include "self_signed/default_set.h"

#include <unistd.h>

#include <chrono>

#include "base/log.h"
#include "platform/files.h"
#include "platform/process.h"
#include "self_signed/log_tag.h"
#include "self_signed/mkcert.h"
#include "self_signed/serial_file.h"

namespace kova::mkcert {
namespace {

constexpr char kLockPath[] = "/run/kova-mkcert.lock";
constexpr std::chrono::seconds kLockTimeout{60};
constexpr int kKeyBits = 2048;
constexpr int kDays = 366;
constexpr char kNoCa[] = "Generate CA key & crt failed";
constexpr char kServerName[] = "kova";  // common name and only alias

Subject DefaultSubject(const std::string& common_name) {
  Subject subject;
  subject.country = "ZZ";
  subject.locality = "Tarvel";
  subject.organization = "Kova Inc.";
  subject.common_name = common_name;
  return subject;
}

struct SetPaths {
  explicit SetPaths(const std::string& folder)
      : ca_key(folder + "/kova-ca-privkey.pem"),
        ca_certificate(folder + "/kova-ca-cert.pem"),
        key(folder + "/privkey.pem"),
        certificate(folder + "/cert.pem"),
        full_chain(folder + "/fullchain.pem"),
        marker(folder + "/is_default_cert") {}

  std::string ca_key;
  std::string ca_certificate;
  std::string key;
  std::string certificate;
  std::string full_chain;
  std::string marker;
};

int SignCa(const SetPaths& paths) {
  SigningOrder order;
  order.extension_file = kCaExtensionFile;
  order.request = kCaRequest;
  order.certificate = paths.ca_certificate;
  order.key = paths.ca_key;
  order.self_signed = true;
  order.days = kDays;
  return SignCertificate(order);
}

int SignServer(const SetPaths& paths) {
  if (!HasSerialFile() && CreateSerialFile() != 0) return -1;
  SigningOrder order;
  order.extension_file = kServerExtensionFile;
  order.request = kServerRequest;
  order.certificate = paths.ca_certificate;
  order.serial_file = kSerialFile;
  order.output = paths.certificate;
  order.key = paths.ca_key;
  order.days = kDays;
  order.aliases = kServerName;
  return SignCertificate(order);
}

int Fail(const char* reason, Site site = kTag) {
  LogError(site, "%s", reason);
  return -1;
}

int GenerateCa(const SetPaths& paths) {
  const Subject subject = DefaultSubject("Kova Inc. CA");
  if (GenerateKey(paths.ca_key, kKeyBits) != 0) return Fail("genCAKey() failed");
  if (GenerateRequest(kCaRequestConfig, paths.ca_key, kCaRequest, &subject) != 0) {
    return Fail("genCACsr() failed");
  }
  if (SignCa(paths) != 0) return Fail("genCACrt() failed");
  if (MatchKey(paths.ca_certificate, paths.ca_key) != 0) {
    return Fail("Root certificate and key is not matching");
  }
  return 0;
}

int RefuseEmptyFolder() {
  LogError(kTag, "Invalid paramter []");
  return Fail(kNoCa);
}

int GenerateServer(const SetPaths& paths) {
  const Subject subject = DefaultSubject(kServerName);
  // From here on an older chain would stand beside a newer key, and the folder would look complete.
  (void)unlink(paths.full_chain.c_str());
  if (GenerateKey(paths.key, kKeyBits) != 0) return Fail("Failed to generate key");
  if (GenerateRequest(kServerRequestConfig, paths.key, kServerRequest, &subject) != 0) {
    return Fail("Failed to generate csr");
  }
  if (SignServer(paths) != 0) return Fail("Failed to generate cert");
  if (MatchKey(paths.certificate, paths.key) != 0) return Fail("cert and key is not matching.");
  // The server's certificate alone, on purpose: a CA of this kind is of no use to a client.
  if (KLIBCExec("/bin/cp", {"-f", paths.certificate, paths.full_chain}) != 0) {
    return Fail("Failed to copy crt to chain crt.");
  }
  return 0;
}

}  // namespace

GenerationLock::GenerationLock() : FileLock(kTag, kLockPath, kLockTimeout) {}

int GenerateDefaultSet(const std::string& folder, const GenerationLock& lock) {
  if (folder.empty()) return RefuseEmptyFolder();
  if (!lock.Held()) return -1;
  const SetPaths paths(folder);
  if (GenerateCa(paths) != 0) return Fail(kNoCa);
  if (GenerateServer(paths) != 0) return Fail("Failed to generate cert set");
  if (KLIBCFileTouch(paths.marker) != 0) return Fail("Failed to touch default cert");
  return 0;
}

int GenerateDefaultSet(const std::string& folder) {
  if (folder.empty()) return RefuseEmptyFolder();  // at once, so before the lock
  const GenerationLock lock;
  return GenerateDefaultSet(folder, lock);
}

}  // namespace kova::mkcert
