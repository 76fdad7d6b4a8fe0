#!/bin/bash
# Checks the Debian packages of scripts/package: unpacks them into a scratch
# root, checks where their files lie and what their control data declare,
# runs the unpacked programs and bash completion, builds the consumer program
# against the unpacked development files and runs it against the test server,
# and runs lintian (an error fails).
set -euo pipefail
packages=${1:?directory of the .deb files}
. "$(dirname "$0")/consumers.sh"
root=$(mktemp -d /tmp/velm-packages.XXXXXX)
trap 'rm -rf "$root"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

declare -A deb
for name in libvelmdb1 libvelmdb-dev velm-tools; do
    deb[$name]=$(ls "$packages/${name}"_*.deb 2>/dev/null | head -n 1)
    [ -n "${deb[$name]}" ] || fail "no $name package in $packages"
    dpkg -x "${deb[$name]}" "$root"
done
version=$(dpkg-deb -f "${deb[libvelmdb1]}" Version)
libdir=$(dirname "$(find "$root/usr/lib" -name 'libvelmdb.so.1' | head -n 1)")

# Package, then a path (a glob below the root) that it must hold.
while read -r name path; do
    pattern=$(sed 's/\./\\./g; s/\*/[^\/]*/g' <<<"$path")
    dpkg-deb -c "${deb[$name]}" | awk '{print $6}' | grep -qx "\./$pattern" || fail "$name lacks $path"
done <<'LAYOUT'
libvelmdb1 usr/lib/*/libvelmdb.so.1
libvelmdb1 usr/lib/*/libvelmplatform.so.1
libvelmdb1 usr/share/doc/libvelmdb1/copyright
libvelmdb-dev usr/lib/*/libvelmdb.so
libvelmdb-dev usr/lib/*/libvelmplatform.so
libvelmdb-dev usr/include/velm/LocationService.h
libvelmdb-dev usr/lib/*/pkgconfig/velmdb.pc
libvelmdb-dev usr/lib/*/cmake/velmdb/velmdbConfig.cmake
libvelmdb-dev usr/share/doc/libvelmdb-dev/changelog.Debian.gz
velm-tools usr/bin/velmctl
velm-tools usr/bin/velm-registrar
velm-tools usr/share/velm/velm.sql
velm-tools usr/share/man/man1/velmctl.1.gz
velm-tools usr/share/man/man8/velm-registrar.8.gz
velm-tools usr/share/bash-completion/completions/velmctl
velm-tools etc/velm/velm.conf
velm-tools lib/systemd/system/velm-registrar.service
velm-tools usr/share/doc/velm-tools/copyright
LAYOUT

# Control data: dependencies, the conffile, the service user.
control=$(mktemp -d "$root/control.XXXXXX")
dpkg-deb -e "${deb[velm-tools]}" "$control"
dpkg-deb -f "${deb[libvelmdb-dev]}" Depends | grep -q "libvelmdb1 (= $version)" || fail "libvelmdb-dev depends"
dpkg-deb -f "${deb[velm-tools]}" Depends | grep -q "libvelmdb1 (= $version)" || fail "velm-tools depends"
dpkg-deb -f "${deb[libvelmdb1]}" Depends | grep -q "libpq5" || fail "libvelmdb1 does not depend on libpq5"
grep -qx /etc/velm/velm.conf "$control/conffiles" || fail "velm.conf is no conffile"
grep -q 'adduser --system --group' "$control/postinst" || fail "postinst does not create the system user"
grep -q 'deluser --system' "$control/postrm" || fail "postrm does not remove the system user"
grep -qx 'User=velm' "$root/lib/systemd/system/velm-registrar.service" || fail "the service runs as another user"
sh -n "$control/postinst" && sh -n "$control/postrm" && sh -n "$control/prerm"
for program in "$root"/usr/bin/* "$libdir"/*.so.1; do
    ! readelf -d "$program" | grep -q -e RUNPATH -e RPATH || fail "$program has a RUNPATH"
done
for page in "$root"/usr/share/man/man*/*.gz; do
    [ -z "$(zcat "$page" | groff -man -ww -z 2>&1)" ] || fail "$page has groff warnings"
done

# The unpacked programs run on the unpacked libraries.
export LD_LIBRARY_PATH=$libdir PATH=$root/usr/bin:$PATH
{ velm-registrar --help 2>&1 || true; } | grep -q '^usage: velm-registrar' || fail "velm-registrar does not run"
# Completion: the words typed, then what completes the last one.
# shellcheck disable=SC1091
. "$root/usr/share/bash-completion/completions/velmctl"
while IFS='|' read -r line expected; do
    read -ra COMP_WORDS <<<"$line"
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _velmctl
    [ "${COMPREPLY[*]}" = "$expected" ] || fail "completing '$line' gave '${COMPREPLY[*]}', not '$expected'"
done <<'COMPLETION'
velmctl pre|prefix
velmctl --json sub|subscriber
velmctl db st|start status stop
velmctl prefix add 555 10 --l|--length
velmctl register a b --ex|--expires
COMPLETION

build_consumers "$root/usr" "$root" ""

command -v lintian >/dev/null || fail "lintian is not installed (scripts/install-deps installs it)"
lintian --fail-on error "${deb[@]}" >&2 || fail "lintian reports errors"
