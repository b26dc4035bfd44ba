#!/usr/bin/env bash
# `cmake --install` of a built tree into a fresh prefix: every program runs from there, the units name the programs
# under that prefix, the manual pages and the bash completion work, and uninstalling leaves no file behind.
#
#   install.sh BUILD_DIR
set -euo pipefail
build=$1
source "$(dirname "$0")/checks.sh"

prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null
manifest="$build/install_manifest.txt"

for program in korbanhold korbanhold-sync-service korbanhold-watch korbanhold-devserver; do
  expect_file "$prefix/bin/$program"
  "$prefix/bin/$program" --version | grep -q "^$program " || fail "$program --version from the install"
  zcat "$prefix/share/man/man1/$program.1.gz" | grep -q '^\.SH NAME' || fail "manual page of $program"
done
man -l "$prefix/share/man/man1/korbanhold.1.gz" 2>/dev/null | grep -q 'korbanhold - the command line' \
  || fail "man cannot render korbanhold(1)"

units="$prefix/lib/systemd/user"
expect_file "$units/korbanhold-sync.socket"
for unit in korbanhold-sync korbanhold-watch; do
  program=$(sed -n 's/^ExecStart=//p' "$units/$unit.service")
  [ "$program" = "$prefix/bin/${unit/-sync/-sync-service}" ] || fail "$unit.service starts $program"
done

# The completion offers the commands, then the subcommands of defaults.
completion="$prefix/share/bash-completion/completions/korbanhold"
expect_file "$completion"
offered=$(PATH="$prefix/bin:$PATH" bash -c 'source "$1"; COMP_WORDS=(korbanhold st); COMP_CWORD=1; _korbanhold
  echo "${COMPREPLY[*]}"; COMP_WORDS=(korbanhold defaults e); COMP_CWORD=2; _korbanhold; echo "${COMPREPLY[*]}"' \
  _ "$completion")
[ "$offered" = $'status\nexport' ] || fail "completion offered: $offered"

for doc in README.md architecture.md copyright changelog.Debian.gz; do
  expect_file "$prefix/share/doc/korbanhold/$doc"
done

cmake -DMANIFEST="$manifest" -P "$(dirname "$0")/../../cmake/Uninstall.cmake" >/dev/null
left=$(find "$prefix" -type f -o -type l -o -name 'korbanhold*')
[ -z "$left" ] || fail "left after uninstalling: $left"
echo "install and uninstall under $prefix: ok"
