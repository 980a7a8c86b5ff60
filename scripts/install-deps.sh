#!/bin/bash
# Installs what building and testing need, from Debian's packages (CONTRIBUTING.md says what each is
# for). Does nothing when all of it is there. Services that come along are started neither now nor at
# the next boot.
#
# usage: install-deps.sh [--build-only | --demo | --bench] [--list]
#   --build-only  what building and installing need
#   --demo        that, and what scripts/demo.sh runs
#   --bench       that, and what the benchmarks measure with and against
#   --list        prints the names of the packages and installs nothing
set -euo pipefail

build=(
  g++ cmake ninja-build pkg-config gzip
  libssl-dev libcurl4-openssl-dev libjsoncpp-dev libminiupnpc-dev
  openssl ca-certificates file dpkg-dev
)
demo=(iproute2 util-linux hostname pebble nginx curl)
bench=(libbenchmark-dev gnuplot-nox uacme lego certbot dehydrated python3 python3-cryptography)
test=(
  ccache clang clang-tidy git libclang-rt-dev libgtest-dev libgmock-dev procps
  python3 python3-pytest python3-cryptography python3-dnslib python3-dnspython
  nftables miniupnpd-nftables miniupnpc knot knot-dnsutils cron libfaketime
  apache2 postfix dovecot-imapd haproxy
  systemd man-db mandoc bash-completion debootstrap lintian valgrind
)

packages=("${build[@]}" "${demo[@]}" "${test[@]}")
list=false
for option in "$@"; do
  case $option in
    --build-only) packages=("${build[@]}") ;;
    --demo) packages=("${build[@]}" "${demo[@]}") ;;
    --bench) packages=("${build[@]}" "${demo[@]}" "${bench[@]}") ;;
    --list) list=true ;;
    *) sed -n 's/^# \(usage\|  \)/\1/p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
  esac
done
if $list; then
  printf '%s\n' "${packages[@]}"
  exit 0
fi

is_installed() {
  [[ $(dpkg-query -W -f '${db:Status-Abbrev}' "$1" 2>/dev/null) == ii* ]]
}

missing=()
for package in "${packages[@]}"; do
  is_installed "$package" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0
[[ $EUID -eq 0 ]] || { echo "to be run as root; missing: ${missing[*]}" >&2; exit 1; }

# shellcheck source=scripts/install/quiet-services.sh
source "$(dirname "${BASH_SOURCE[0]}")/install/quiet-services.sh"
keep_services_quiet

export DEBIAN_FRONTEND=noninteractive
apt=(apt-get -qq --yes -o DPkg::Lock::Timeout=120 -o Dpkg::Use-Pty=0)
echo "Installing: ${missing[*]}"
"${apt[@]}" update
"${apt[@]}" install --no-install-recommends "${missing[@]}" > /dev/null
