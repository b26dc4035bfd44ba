#!/usr/bin/env bash
# The installed systemd units: each service's exposure in `systemd-analyze security --offline=true` is at most 2.5,
# and the units pass `systemd-analyze verify` but for the programs' absence from this machine's PATH.
#
#   units.sh BUILD_DIR
set -euo pipefail
build=$1
source "$(dirname "$0")/checks.sh"
command -v systemd-analyze >/dev/null || fail "systemd-analyze is missing (scripts/bootstrap installs systemd)"

prefix=$(mktemp -d)
runtime=$(mktemp -d)
trap 'rm -rf "$prefix" "$runtime"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
units="$prefix/lib/systemd/user"

services=("$units"/*.service)
[ ${#services[@]} -ge 1 ] && [ -f "${services[0]}" ] || fail "no service unit installed in $units"
for unit in "${services[@]}"; do
  # The user manager's specifiers (%t, %h, %E) need a runtime folder to resolve against.
  report=$(cd "$units" && XDG_RUNTIME_DIR=$runtime systemd-analyze security --user --offline=true --threshold=25 \
    "$unit" 2>&1) || fail "$(basename "$unit") is above 2.5: $(tail -1 <<<"$report")"
  echo "$(tail -1 <<<"$report")"
done
