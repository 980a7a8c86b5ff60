# Sourced by install-deps.sh: services that come along with the packages are neither started nor
# enabled for the next boot, since they run in the tests' own namespaces only. What was there before
# keeps its links.
# shellcheck shell=bash

policy=/usr/sbin/policy-rc.d
policy_mark="# Made by install-deps.sh, and of no effect once that has ended."

# One line for each service and timer of the next boot: "script NAME" or "unit NAME".
enabled() {
  local link
  for link in /etc/rc[2-5].d/S[0-9][0-9]*; do
    [[ ! -L $link ]] || echo "script ${link##*/S[0-9][0-9]}"
  done
  for link in /etc/systemd/system/*.{wants,requires}/*; do
    [[ ! -L $link ]] || echo "unit ${link##*/}"
  done
}

# 101 is "action forbidden by policy". A policy of the administrator's own stands; one that a killed
# run has left does not.
forbid_starts() {
  [[ ! -e $policy ]] || grep -qsxF "$policy_mark" "$policy" || return 0
  printf '#!/bin/sh\n%s\nkill -0 %d 2>/dev/null || exit 0\nexit 101\n' "$policy_mark" "$$" \
    > "$policy.new"
  chmod 755 "$policy.new"
  mv "$policy.new" "$policy"
}

allow_starts() {
  rm -f "$policy.new"
  ! grep -qsxF "$policy_mark" "$policy" || rm -f "$policy"
}

disable() {  # KIND NAME
  if [[ $1 == script ]]; then
    update-rc.d "$2" disable
  else
    systemctl --quiet disable "$2" 2>/dev/null || rm -f /etc/systemd/system/*.{wants,requires}/"$2"
  fi
}

# Those that were not enabled BEFORE (a text of enabled). The init system's own units stay.
disable_new() {
  local kind name names=()
  while read -r kind name; do
    if [[ $kind == unit ]] && dpkg-query -L systemd 2>/dev/null | grep -q "/system/${name/@*/@}"; then
      continue
    fi
    disable "$kind" "$name" || echo "Could not disable $name" >&2
    names+=("$name")
  done < <(comm -13 <(sort -u <<< "$1") <(enabled | sort -u))
  [[ ${#names[@]} -eq 0 ]] ||
    echo "Not enabled:" "$(printf '%s\n' "${names[@]%.service}" | sort -u | paste -sd ' ')"
}

# From here to the script's end, however that comes: a signal waits for apt, which would start services
# as soon as nothing forbids it.
keep_services_quiet() {
  enabled_before=$(enabled)
  trap 'disable_new "$enabled_before" || true; allow_starts' EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  forbid_starts
}
