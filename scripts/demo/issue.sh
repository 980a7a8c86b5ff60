#!/bin/bash
# The inside of scripts/demo.sh, run in the sandbox: issue.sh STAGE installs the program from the
# staging folder, starts the servers, issues the certificate and shows what came of it; renew.sh goes
# on from there. The servers end with the sandbox.
set -euo pipefail

[[ -n ${KOVA_SANDBOX:-} ]] || { echo "to be run by scripts/demo.sh" >&2; exit 2; }

stage=$1
here=$(dirname "${BASH_SOURCE[0]}")
program=/usr/kova/sbin/kova-letsencrypt
directory=https://localhost:14000/dir
# Of such lengths that the request needs no "=" at the end of its base64 text: the program sends that
# along, which public CAs take and pebble does not.
names="www.demo.example;demo.example"
work=/run/demo

if [[ -t 1 ]]; then bold=$'\e[1m' plain=$'\e[0m'; else bold="" plain=""; fi
title() { printf '\n%s%s%s\n' "$bold" "$1" "$plain"; }
fact() { printf '  %-10s %s\n' "$1" "$2"; }
indent() { sed 's/^/  /'; }

# start LOG PORT COMMAND...: in the background, until it listens on the port.
start() {
  local log=$work/$1.log port=$2
  shift 2
  "$@" < /dev/null > "$log" 2>&1 &
  local server=$!
  for _ in {1..100}; do
    if (: < "/dev/tcp/127.0.0.1/$port") 2>/dev/null; then return; fi
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
  done
  echo "$1 did not start:" >&2
  cat "$log" >&2
  exit 1
}

# A certificate for the CA's own https, from a root that this private host trusts.
trust_the_ca() {
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=Root of the demo" \
    -keyout "$work/root.key" -out "$work/root.pem"
  openssl req -newkey rsa:2048 -nodes -subj "/CN=localhost" \
    -keyout "$work/ca.key" -out "$work/ca.csr"
  openssl x509 -req -in "$work/ca.csr" -CA "$work/root.pem" -CAkey "$work/root.key" \
    -CAcreateserial -days 2 -extfile <(echo "subjectAltName=DNS:localhost") -out "$work/ca.pem"
  cat "$work/root.pem" >> /etc/ssl/certs/ca-certificates.crt
} 2>/dev/null

mkdir -p "$work/nginx"
cp -a "$stage/usr/kova" /usr/
echo '{"router": "none"}' > /usr/kova/etc/device.json
trust_the_ca

title "A CA, a name server and a web server on this machine"
start names 8055 pebble-challtestsrv -dns01 127.0.0.1:8053 -management 127.0.0.1:8055 \
  -defaultIPv6 "" -http01 "" -https01 "" -tlsalpn01 ""
fact names "pebble-challtestsrv: every name leads to 127.0.0.1"
start web 80 nginx -c "$(realpath "$here/nginx.conf")"
fact web "nginx: port 80 publishes /var/lib/letsencrypt/.well-known/acme-challenge"
PEBBLE_VA_NOSLEEP=1 start ca 14000 pebble -config "$here/pebble.json" -dnsserver 127.0.0.1:8053
fact ca "pebble: $directory, validates on port 80"

title "\$ $program new-cert -s $directory -d \"$names\" -m admin@demo.example"
if ! "$program" new-cert -s "$directory" -d "$names" -m admin@demo.example > "$work/result"; then
  cat "$work/result"
  echo "The CA said:" >&2
  tail -n 40 "$work/ca.log" >&2
  exit 1
fi
indent < "$work/result"
folder=$(sed -n 's/.*"cert_path" : "\(.*\)".*/\1/p' "$work/result")

title "Files in $folder"
for file in cert.pem chain.pem fullchain.pem privkey.pem renew.json; do
  printf '  %s %5d bytes  %s\n' "$(stat -c %A "$folder/$file")" "$(stat -c %s "$folder/$file")" \
    "$file"
done

certificate() { openssl x509 -in "$folder/cert.pem" -noout "$@"; }
title "The certificate"
fact names "$(certificate -ext subjectAltName | tail -n 1 | sed 's/ *DNS:/ /g; s/^ *//')"
fact issuer "$(certificate -issuer -nameopt multiline | sed -n 's/.*commonName *= //p')"
fact valid "$(certificate -startdate -enddate | sed 's/.*=//' | paste -sd '#' | sed 's/#/ to /')"
fact key "$(openssl rsa -in "$folder/privkey.pem" -noout -check 2>&1), fits: $(
  [[ $(certificate -pubkey) == "$(openssl pkey -in "$folder/privkey.pem" -pubout)" ]] &&
    echo yes || echo no)"

title "How it will be renewed"
indent < "$folder/renew.json"
indent < /etc/cron.d/kova-letsencrypt

# shellcheck source=scripts/demo/renew.sh
source "$here/renew.sh"
