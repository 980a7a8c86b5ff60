#include "self_signed/mkcert.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "base/log.h"
#include "platform/files.h"
#include "platform/process.h"

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

Status MakeOwnerOnly(const std::string& file) {
  if (chmod(file.c_str(), S_IRUSR) == 0) return {};
  const std::string why = ErrorWords(errno);
  LogError(kTag, "Failed to chmod %s (%s)", file.c_str(), why.c_str());
  return Status::Failed("Failed to chmod", file, why);
}

// What the tool complained about is the cause.
Status ToolFailed(const char* message, const std::string& complaint) {
  LogError(kTag, "%s", message);
  return Status::Failed(message, kOpenssl, complaint);
}

Status Refuse(const char* message) {
  LogError(kTag, "%s", message);
  return Status::Failed(message);
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

Status CheckOrder(const SigningOrder& order) {
  if (!HasValidParameters(order)) return Refuse("genCrt params invalid");
  if (!KLIBCFileExist(order.request)) return Refuse("Csr is not existed");
  if (!KLIBCFileExist(order.key)) return Refuse("Key is not existed");
  if (order.self_signed) return {};
  if (order.serial_file.empty() || order.output.empty()) return Refuse("genCrt params invalid");
  return KLIBCFileExist(order.serial_file) ? Status() : Refuse("Serial file is not existed");
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

Status GenerateKey(const std::string& key, int bits) {
  if (key.empty() || bits == 0) return Refuse("Failed to genKey with invalid parameters");
  if (Status made = MakeParentDirectory(key); !made) {
    LogError(kTag, "Failed to generate directory for %s", key.c_str());
    return made;
  }
  KovaArgs args = {"genrsa"};
  if (const std::string files = ReadableRandomFiles(); !files.empty()) {
    args.insert(args.end(), {"-rand", files});
  }
  args.insert(args.end(), {"-out", key, std::to_string(bits)});
  const ScopedUmask only_owner(kPrivateUmask);
  // A key that is overwritten keeps the mode of the old file, which nobody vouches for.
  (void)chmod(key.c_str(), S_IRUSR);
  std::string complaint;
  if (KLIBCExecl(kOpenssl, kKovaExecTool, args, &complaint) != 0) {
    return ToolFailed("Error when execute", complaint);
  }
  return MakeOwnerOnly(key);
}

Status GenerateRequest(const std::string& config, const std::string& key,
                       const std::string& request, const Subject* subject) {
  if (config.empty() || key.empty() || request.empty() || subject == nullptr) {
    return Refuse("Failed to generate csr with invalid paramters");
  }
  if (!KLIBCFileExist(key)) return Refuse("Key is not existed");
  if (Status made = MakeParentDirectory(request); !made) {
    LogError(kTag, "Failed to generate directory for %s", request.c_str());
    return made;
  }
  if (Status written = WriteRequestConfig(config, subject); !written) {
    LogError(kTag, "Failed to generate csr config file");
    return written;
  }
  const KovaArgs args = {"req", "-config", config, "-new", "-sha256", "-key", key, "-out", request};
  const ScopedUmask only_owner(kPrivateUmask);
  std::string complaint;
  if (KLIBCExecl(kOpenssl, kKovaExecTool, args, &complaint) != 0) {
    return ToolFailed("Create CSR failed, command", complaint);
  }
  return MakeOwnerOnly(request);
}

Status SignCertificate(const SigningOrder& order) {
  if (Status possible = CheckOrder(order); !possible) return possible;
  PrepareExtensions(order);
  const std::string& output = order.self_signed ? order.certificate : order.output;
  if (Status made = MakeParentDirectory(output); !made) {
    LogError(kTag, "generate directory failed");
    return made;
  }
  const ScopedUmask only_owner(kPrivateUmask);
  std::string complaint;
  if (KLIBCExecv(SigningCommand(order, output), 1, &complaint) != 0) {
    return ToolFailed("Error when execute", complaint);
  }
  return MakeOwnerOnly(output);
}

}  // namespace kova::mkcert
