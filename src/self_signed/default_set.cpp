#include "self_signed/default_set.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

#include "base/log.h"
#include "platform/fd.h"
#include "platform/files.h"
#include "platform/process.h"
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

Status SignCa(const SetPaths& paths) {
  SigningOrder order;
  order.extension_file = kCaExtensionFile;
  order.request = kCaRequest;
  order.certificate = paths.ca_certificate;
  order.key = paths.ca_key;
  order.self_signed = true;
  order.days = kDays;
  return SignCertificate(order);
}

Status SignServer(const SetPaths& paths) {
  if (!HasSerialFile()) {
    if (Status created = CreateSerialFile(); !created) return created;
  }
  SigningOrder order;
  order.extension_file = kServerExtensionFile;
  order.request = kServerRequest;
  order.certificate = paths.ca_certificate;
  order.serial_file = kSerialFile;
  order.output = paths.certificate;
  order.key = paths.ca_key;
  order.days = kDays;
  order.aliases = kServerName;
  Status done = SignCertificate(order);
  if (done || HoldsSerial()) return done;
  // The tool's own complaint is about its syntax.
  return Status::Failed("Failed to generate cert:", std::string("[") + kSerialFile + "]",
                        "holds no serial number");
}

// Logs the step that failed and passes its cause on.
Status Fail(Status cause, const char* message, Site site = kTag) {
  LogError(site, "%s", message);
  return cause;
}

Status RequireMatch(const std::string& certificate, const std::string& key, const char* message) {
  bool matches = false;
  Status compared = MatchKey(certificate, key, matches);
  if (compared && matches) return {};
  return Fail(compared ? Status::Failed(message) : compared, message);
}

Status GenerateCa(const SetPaths& paths) {
  const Subject subject = DefaultSubject("Kova Inc. CA");
  if (Status done = GenerateKey(paths.ca_key, kKeyBits); !done) {
    return Fail(done, "genCAKey() failed");
  }
  if (Status done = GenerateRequest(kCaRequestConfig, paths.ca_key, kCaRequest, &subject); !done) {
    return Fail(done, "genCACsr() failed");
  }
  if (Status done = SignCa(paths); !done) return Fail(done, "genCACrt() failed");
  return RequireMatch(paths.ca_certificate, paths.ca_key,
                      "Root certificate and key is not matching");
}

Status RefuseEmptyFolder() {
  LogError(kTag, "Invalid paramter []");
  return Fail(Status::Failed("Invalid paramter []"), kNoCa);
}

// The server's certificate alone, on purpose: a CA of this kind is of no use to a client.
Status CopyChain(const SetPaths& paths) {
  if (KLIBCExec("/bin/cp", {"-f", paths.certificate, paths.full_chain}) == 0) return {};
  (void)unlink(paths.full_chain.c_str());  // half of one would make the set look complete
  const char* message = "Failed to copy crt to chain crt.";
  return Fail(Status::Failed(message), message);
}

Status GenerateServer(const SetPaths& paths) {
  const Subject subject = DefaultSubject(kServerName);
  // From here on an older chain would stand beside a newer key, and the folder would look complete.
  (void)unlink(paths.full_chain.c_str());
  if (Status done = GenerateKey(paths.key, kKeyBits); !done) {
    return Fail(done, "Failed to generate key");
  }
  if (Status done = GenerateRequest(kServerRequestConfig, paths.key, kServerRequest, &subject);
      !done) {
    return Fail(done, "Failed to generate csr");
  }
  if (Status done = SignServer(paths); !done) return Fail(done, "Failed to generate cert");
  if (Status fit = RequireMatch(paths.certificate, paths.key, "cert and key is not matching.");
      !fit) {
    return fit;
  }
  return CopyChain(paths);
}

Status Flush(const std::string& path) {
  const platform::Fd opened(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (opened && fsync(opened.Get()) == 0) return {};
  const int error = errno;
  LogError(kTag, "Failed to flush %s (%s)", path.c_str(), ErrorWords(error).c_str());
  return Status::Failed("Failed to flush", path, ErrorWords(error));
}

// The tools leave that to the kernel; a set that is reported made is to outlive a power cut.
Status FlushAll(const std::string& folder, const SetPaths& paths) {
  for (const std::string& path : {paths.ca_key, paths.ca_certificate, paths.key, paths.certificate,
                                  paths.full_chain, paths.marker}) {
    if (Status flushed = Flush(path); !flushed) return flushed;
  }
  return Flush(folder);
}

Status MarkDefault(const SetPaths& paths) {
  if (KLIBCFileTouch(paths.marker) == 0) return {};
  LogError(kTag, "Failed to touch default cert");
  return Status::FailedCall("Failed to touch", paths.marker);
}

}  // namespace

GenerationLock::GenerationLock() : FileLock(kTag, kLockPath, kLockTimeout) {}

Status GenerateDefaultSet(const std::string& folder, const GenerationLock& lock) {
  if (folder.empty()) return RefuseEmptyFolder();
  if (!lock.Held()) return lock.Outcome();
  const SetPaths paths(folder);
  if (Status made = GenerateCa(paths); !made) return Fail(made, kNoCa);
  if (Status made = GenerateServer(paths); !made) return Fail(made, "Failed to generate cert set");
  if (Status marked = MarkDefault(paths); !marked) return marked;
  return FlushAll(folder, paths);
}

Status GenerateDefaultSet(const std::string& folder) {
  if (folder.empty()) return RefuseEmptyFolder();  // at once, so before the lock
  const GenerationLock lock;
  return GenerateDefaultSet(folder, lock);
}

}  // namespace kova::mkcert
