#include "letsencrypt_cli/options.h"

#include <getopt.h>
#include <unistd.h>

#include <cstdio>

#include "base/debug.h"
#include "platform/version.h"

namespace kova {
namespace {

// The spelling, and "cert-path" for what is an id, are what callers know.
constexpr char kUsage[] =
    "kova-letsencrypt <command> [<args>]\n"
    "  new-cert \n"
    "      -d [domains]   Domain name to be registed. (required)\n"
    "      -m [mail]      Email address for contact. (required)\n"
    "      -s [server]    Let's encrypt directory URL. (optional)\n"
    "      -c [certid]    Certificat Id. (optional)\n"
    "      -p [version]   ACME version, should use with -s (optional)\n"
    "\n"
    "  renew-all\n"
    "\n"
    "  revoke\n"
    "     -c [cert-path]  revoke a certificat. (required)\n"
    "\n"
    "For all command, you can add the following arguments for debug.\n"
    "      -v             Show debug message.\n"
    "      -vv            Show more debug message.\n"
    "\n";

}  // namespace

bool ParseOptions(int argc, char** argv, const char* accepted, CommandOptions& options) {
  opterr = isatty(STDERR_FILENO);  // getopt's own words are for people
  optind = 0;  // begins anew: 1 would go on in the middle of a word of an earlier call
  for (int option = 0; (option = getopt(argc, argv, accepted)) != -1;) {
    switch (option) {
      case 'c':
        options.certificate_id = optarg;
        break;
      case 's':
        options.server = optarg;
        break;
      case 'd':
        options.domains_replaced |= !options.domains.empty();
        options.domains = optarg;
        break;
      case 'm':
        options.email = optarg;
        break;
      case 'p':
        options.version = optarg;
        break;
      case 'v':
        SetDebugLevel(optarg == nullptr ? 1 : 2);
        break;
      default:
        return false;
    }
  }
  return true;
}

void PrintUsage() {
  std::printf("%s %s, ACME client\n%s", KOVA_PROGRAM_NAME, KOVA_PROGRAM_VERSION, kUsage);
}

}  // namespace kova
