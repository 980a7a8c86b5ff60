# The second half of the demo, sourced by issue.sh: hands the certificate in $folder to the web
# server, then makes it look 85 days old and has it renewed. Needs what issue.sh set up.
# shellcheck shell=bash disable=SC2154

archive=/usr/kova/sbin/kova-archive
id=$(basename "$folder")
name=${names%%;*}
service=/usr/kova/etc/certificate/nginx/web

# Shows a command as a person would type it, runs it and shows what it says.
try() {
  local said
  title "\$ $(typeset_words "$@")"
  said=$("$@")
  indent <<< "${said:-(no output: all went well)}"
}

# The list keeps its colours, since nothing stands between it and the terminal.
try_list() {
  title "\$ $archive list"
  "$archive" list
}

# The words of a command, in quotes where a shell would need them.
typeset_words() {
  local word line=""
  for word in "$@"; do
    [[ $word =~ ^[[:alnum:]_./=:,-]+$ ]] || word="\"$word\""
    line+=" $word"
  done
  echo "${line# }"
}

served() {
  openssl s_client -connect 127.0.0.1:443 -servername "$name" < /dev/null 2> /dev/null |
    openssl x509 -noout "$@" 2> /dev/null
}

serial_of() { openssl x509 -in "$1" -noout -serial; }

# nginx reloads in its own time, in which a process of before may still take a connection.
wait_until_served() {
  local times=0
  for _ in {1..100}; do
    if [[ $(served -serial) == "$(serial_of "$folder/cert.pem")" ]]; then
      times=$((times + 1))
    else
      times=0
    fi
    [[ $times -lt 5 ]] || return 0
    sleep 0.1
  done
  echo "nginx does not serve the certificate of $folder" >&2
  exit 1
}

# show_https ROOT: what a client that trusts this root alone gets.
show_https() {
  wait_until_served
  title "https://$name/, as a browser would ask for it"
  local said
  said=$(curl -sS --cacert "$1" --resolve "$name:443:127.0.0.1" --retry 10 --retry-all-errors \
    --retry-delay 1 "https://$name/" 2> "$work/curl.log") || { cat "$work/curl.log" >&2; exit 1; }
  fact "says" "$said"
  fact "issuer" "$(served -issuer | sed 's/^issuer=//')"
  fact "serial" "$(served -serial | sed 's/.*=//')"
  fact "until" "$(served -enddate | sed 's/.*=//')"
}

write_reload_script() {
  install -d /usr/libexec/certificate.d
  printf '#!/bin/sh\nexec nginx -s reload -c %s 2>/dev/null\n' "$(realpath "$here/nginx.conf")" \
    > /usr/libexec/certificate.d/nginx
  chmod 755 /usr/libexec/certificate.d/nginx
}

serve_https() {
  cat > "$work/nginx/https.conf" << END
server {
  listen 443 ssl;
  server_name $name;
  ssl_certificate     $service/fullchain.pem;
  ssl_certificate_key $service/privkey.pem;
  location / { return 200 "hello from $name\n"; }
}
END
  /usr/libexec/certificate.d/nginx
}

# As certificates are dated, so long from now.
moment() { date -u -d "$1" +%Y%m%d%H%M%SZ; }

# A certificate that "Let's Encrypt" issued 85 days ago and that ends in five takes the place of the
# new one. The renewal record stays, so it is renewed at the CA of the demo.
make_it_due() {
  local new=$work/due
  mkdir "$new"
  openssl req -x509 -newkey rsa:2048 -nodes -days 90 -subj "/O=Let's Encrypt/CN=R0 of the demo" \
    -keyout "$new/root.key" -out "$new/chain.pem"
  openssl req -newkey rsa:2048 -nodes -subj "/CN=$name" \
    -keyout "$new/privkey.pem" -out "$new/request"
  # Only "ca" takes the moments; it wants a database for that.
  printf '%s\n' "[ca]" "default_ca = demo" "[demo]" "database = $new/issued" "policy = any" \
    "new_certs_dir = $new" "rand_serial = yes" "[any]" "commonName = supplied" > "$new/config"
  : > "$new/issued"
  openssl ca -batch -notext -md sha256 -config "$new/config" -in "$new/request" \
    -cert "$new/chain.pem" -keyfile "$new/root.key" -startdate "$(moment "-85 days")" \
    -enddate "$(moment "+5 days")" -extfile <(echo "subjectAltName=DNS:${names//;/,DNS:}") \
    -out "$new/cert.pem"
  cat "$new/cert.pem" "$new/chain.pem" > "$new/fullchain.pem"
  for file in cert.pem chain.pem fullchain.pem privkey.pem; do
    install -m 0400 "$new/$file" "$folder/$file"
  done
} 2> /dev/null

curl -sS --cacert "$work/root.pem" https://localhost:15000/roots/0 > "$work/ca-root.pem"

try "$archive" add "$id" --desc "Web server"
write_reload_script
try "$archive" bind "$id" --subscriber nginx --service web --display-name "Web server" --owner root
title "What nginx has now"
fact script "/usr/libexec/certificate.d/nginx: nginx -s reload"
for file in "$service"/*; do fact files "$(stat -c '%A %U' "$file") $file"; done
serve_https
show_https "$work/ca-root.pem"

title "85 days later (a certificate by \"Let's Encrypt\" that is about to end takes its place)"
make_it_due
try "$archive" deploy "$id"
try_list
show_https "$work/due/chain.pem"
due=$(served -serial | sed 's/.*=//')

try "$program" renew-all
show_https "$work/ca-root.pem"
try_list

renewed=$(served -serial | sed 's/.*=//')
[[ $renewed != "$due" ]] || { echo "the old certificate is still served" >&2; exit 1; }
title "Renewed: nginx served serial $due, and serves $renewed now"
