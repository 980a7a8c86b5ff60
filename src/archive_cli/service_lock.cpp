#include "archive_cli/service_lock.h"

#include <cstring>

#include "archive_cli/command.h"
#include "platform/error.h"

namespace kova::archive_cli {
namespace {

constexpr char kTag[] = "kova-archive";
constexpr char kPath[] = "/run/kova-archive.lock";
constexpr std::chrono::minutes kTimeout{2};  // others copy files and run reload scripts

}  // namespace

ServiceLock::ServiceLock() : lock_(kTag, kPath, kTimeout) {
  if (!lock_.Held())
    throw Failure{std::string("cannot lock ") + kPath + ": " + std::strerror(KLIBCErrGet())};
}

}  // namespace kova::archive_cli
