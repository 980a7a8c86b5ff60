#!/bin/bash
# Installs what building and testing need, from Debian's packages (CONTRIBUTING.md says what each is
# for). Does nothing when all of it is there. Services that come along are not started.
#
# usage: install-deps.sh [--build-only]
set -euo pipefail

build=(
  g++ cmake ninja-build pkg-config gzip
  libssl-dev libcurl4-openssl-dev libjsoncpp-dev libminiupnpc-dev libgtest-dev libgmock-dev
  openssl ca-certificates
)
test=(
  clang clang-format
  python3 python3-pytest python3-cryptography python3-dnslib python3-dnspython
  iproute2 util-linux procps hostname
  pebble nginx
  nftables miniupnpd-nftables miniupnpc knot knot-dnsutils cron
  file man-db mandoc bash-completion debootstrap lintian
)
packages=("${build[@]}")
[[ ${1:-} == --build-only ]] || packages+=("${test[@]}")

is_installed() {
  [[ $(dpkg-query -W -f '${db:Status-Abbrev}' "$1" 2>/dev/null) == ii* ]]
}

missing=()
for package in "${packages[@]}"; do
  is_installed "$package" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

# 101 is "action forbidden by policy": what is installed here runs in the tests' own namespaces only.
policy=/usr/sbin/policy-rc.d
if [[ ! -e $policy ]]; then
  trap 'rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' > "$policy"
  chmod 755 "$policy"
fi

export DEBIAN_FRONTEND=noninteractive
echo "Installing: ${missing[*]}"
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" > /dev/null
