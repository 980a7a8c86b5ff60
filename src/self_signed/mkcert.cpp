#include "self_signed/mkcert.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <sstream>

#include "base/log.h"
#include "platform/files.h"
#include "platform/process.h"
#include "platform/scoped_umask.h"
#include "self_signed/log_tag.h"

namespace kova::mkcert {
namespace {

constexpr int kMostAliases = 512;

// Where the tool may take randomness from, besides what the kernel gives it.
constexpr char kRandomFiles[] =
    "/var/log/messages:/var/run/dmesg.boot:/var/log/system.log:/etc/hosts:/etc/group:"
    "/etc/resolv.conf:/bin/ls";

// Those of them that can be read: the tool fails on a list that names any other.
std::string ReadableRandomFiles() {
  std::istringstream files(kRandomFiles);
  std::string readable;
  for (std::string file; std::getline(files, file, ':');) {
    struct stat status {};
    if (access(file.c_str(), R_OK) != 0 || stat(file.c_str(), &status) != 0) continue;
    if (!S_ISREG(status.st_mode)) continue;
    readable += (readable.empty() ? "" : ":") + file;
  }
  return readable;
}

int MakeOwnerOnly(const std::string& file) {
  if (chmod(file.c_str(), S_IRUSR) == 0) return 0;
  LogError(kTag, "Failed to chmod %s (%s)", file.c_str(), std::strerror(errno));
  return -1;
}

// The outcome does not matter on purpose: what failed is logged, and signing goes on with whatever
// extension file is there.
void PrepareExtensions(const SigningOrder& order) {
  if (order.self_signed) {
    (void)WriteCaExtensionFile(order.extension_file);
    return;
  }
  const KovaSzListPtr aliases = KLIBCSzListAlloc(kMostAliases);
  if (aliases == nullptr) {
    LogError(kTag, "Out of memory!! size=%d", kMostAliases);
    return;
  }
  if (KLIBCStrSep(order.aliases, ";", *aliases) < 0) {
    LogError(kTag, "String separate failed.");
    return;
  }
  (void)WriteServerExtensionFile(order.extension_file, aliases.get());
}

bool HasValidParameters(const SigningOrder& order) {
  return !order.extension_file.empty() && !order.request.empty() && !order.certificate.empty() &&
         !order.key.empty() && order.days > 0;
}

// False after a message.
bool CanBeSigned(const SigningOrder& order) {
  if (!HasValidParameters(order)) {
    LogError(kTag, "genCrt params invalid");
  } else if (!KLIBCFileExist(order.request)) {
    LogError(kTag, "Csr is not existed");
  } else if (!KLIBCFileExist(order.key)) {
    LogError(kTag, "Key is not existed");
  } else if (order.self_signed) {
    return true;
  } else if (order.serial_file.empty() || order.output.empty()) {
    LogError(kTag, "genCrt params invalid");
  } else if (!KLIBCFileExist(order.serial_file)) {
    LogError(kTag, "Serial file is not existed");
  } else {
    return true;
  }
  return false;
}

KovaArgs SigningCommand(const SigningOrder& order, const std::string& output) {
  KovaArgs argv = {kOpenssl,   "x509",
                   "-extfile", order.extension_file,
                   "-days",    std::to_string(order.days),
                   "-in",      order.request,
                   "-req",     "-sha256",
                   "-out",     output};
  const KovaArgs signer =
      order.self_signed
          ? KovaArgs{"-signkey", order.key}
          : KovaArgs{"-CAserial", order.serial_file, "-CA", order.certificate, "-CAkey", order.key};
  argv.insert(argv.end(), signer.begin(), signer.end());
  return argv;
}

}  // namespace

int GenerateKey(const std::string& key, int bits) {
  if (key.empty() || bits == 0) {
    LogError(kTag, "Failed to genKey with invalid parameters");
    return -1;
  }
  if (MakeParentDirectory(key) != 0) {
    LogError(kTag, "Failed to generate directory for %s", key.c_str());
    return -1;
  }
  KovaArgs args = {"genrsa"};
  if (const std::string files = ReadableRandomFiles(); !files.empty()) {
    args.insert(args.end(), {"-rand", files});
  }
  args.insert(args.end(), {"-out", key, std::to_string(bits)});
  const ScopedUmask only_owner(kPrivateUmask);
  // A key that is overwritten keeps the mode of the old file, which nobody vouches for.
  (void)chmod(key.c_str(), S_IRUSR);
  if (KLIBCExecl(kOpenssl, kKovaExecTool, args) != 0) {
    LogError(kTag, "Error when execute");
    return -1;
  }
  return MakeOwnerOnly(key);
}

int GenerateRequest(const std::string& config, const std::string& key, const std::string& request,
                    const Subject* subject) {
  if (config.empty() || key.empty() || request.empty() || subject == nullptr) {
    LogError(kTag, "Failed to generate csr with invalid paramters");
    return -1;
  }
  if (!KLIBCFileExist(key)) {
    LogError(kTag, "Key is not existed");
    return -1;
  }
  if (MakeParentDirectory(request) != 0) {
    LogError(kTag, "Failed to generate directory for %s", request.c_str());
    return -1;
  }
  if (WriteRequestConfig(config, subject) != 0) {
    LogError(kTag, "Failed to generate csr config file");
    return -1;
  }
  const ScopedUmask only_owner(kPrivateUmask);
  if (KLIBCExecl(kOpenssl, kKovaExecTool,
                 {"req", "-config", config, "-new", "-sha256", "-key", key, "-out", request}) !=
      0) {
    LogError(kTag, "Create CSR failed, command");
    return -1;
  }
  return MakeOwnerOnly(request);
}

int SignCertificate(const SigningOrder& order) {
  if (!CanBeSigned(order)) return -1;
  PrepareExtensions(order);
  const std::string& output = order.self_signed ? order.certificate : order.output;
  if (MakeParentDirectory(output) != 0) {
    LogError(kTag, "generate directory failed");
    return -1;
  }
  const ScopedUmask only_owner(kPrivateUmask);
  if (KLIBCExecv(SigningCommand(order, output), 1) != 0) {
    LogError(kTag, "Error when execute");
    return -1;
  }
  return MakeOwnerOnly(output);
}

}  // namespace kova::mkcert
