#!/usr/bin/env bash
# The Debian package, built by scripts/package in a release build tree of its own (kept between runs, so that only
# the first run compiles everything): lintian passes it (scripts/package fails otherwise), it holds every program,
# the user units, manual pages, completion, copyright and changelog, and the programs run from its extracted tree.
#
#   deb.sh SOURCE_DIR PACKAGE_BUILD_DIR
set -euo pipefail
source_dir=$1
build=$2
source "$(dirname "$0")/checks.sh"

deb=$(KORBANHOLD_NO_BOOTSTRAP=1 "$source_dir/scripts/package" "$build" | tail -1)
[ -f "$deb" ] || fail "scripts/package made no package"
echo "package: $deb"

contents=$(dpkg-deb -c "$deb" | awk '{ print $6 }')
for path in ./usr/bin/korbanhold ./usr/bin/korbanhold-sync-service ./usr/bin/korbanhold-watch \
  ./usr/bin/korbanhold-devserver ./usr/lib/systemd/user/korbanhold-sync.service \
  ./usr/lib/systemd/user/korbanhold-sync.socket ./usr/lib/systemd/user/korbanhold-watch.service \
  ./usr/share/man/man1/korbanhold.1.gz ./usr/share/man/man1/korbanhold-sync-service.1.gz \
  ./usr/share/man/man1/korbanhold-watch.1.gz ./usr/share/man/man1/korbanhold-devserver.1.gz \
  ./usr/share/bash-completion/completions/korbanhold \
  ./usr/share/doc/korbanhold/copyright ./usr/share/doc/korbanhold/changelog.Debian.gz; do
  grep -qx -- "$path" <<<"$contents" || fail "the package lacks $path"
done
depends=$(dpkg-deb -f "$deb" Depends)
grep -q libcurl <<<"$depends" || fail "the dependencies do not come from the libraries: $depends"

tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
dpkg-deb -x "$deb" "$tree"
grep -qx 'ExecStart=/usr/bin/korbanhold-sync-service' "$tree/usr/lib/systemd/user/korbanhold-sync.service" \
  || fail "the packaged unit does not start /usr/bin/korbanhold-sync-service"
for program in "$tree"/usr/bin/*; do
  "$program" --version || fail "$(basename "$program") --version from the package"
done
