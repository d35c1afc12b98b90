#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Installs a build into a temporary prefix and checks what desktops and software centres rely on: every file where
# the freedesktop.org lookups search, the desktop entry and the metainfo valid without warnings, and the names that
# tie them together (program, icon, desktop id, current release) agreeing with each other.
# Usage: check-installation.sh <build directory> <project version>
set -euo pipefail

build="$1"
version="$2"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

cmake --install "$build" --prefix "$prefix" >/dev/null

id=com.velmont.Orvane
desktop="$prefix/share/applications/$id.desktop"
metainfo="$prefix/share/metainfo/$id.metainfo.xml"
icon="$prefix/share/icons/hicolor/scalable/apps/$id.svg"
symbolic="$prefix/share/icons/hicolor/symbolic/apps/$id-symbolic.svg"

[[ -x "$prefix/bin/orvane" ]] || fail "bin/orvane is missing or not executable"
copyright="$prefix/share/doc/orvane/copyright"
for file in "$desktop" "$metainfo" "$icon" "$symbolic" "$copyright"; do
    [[ -f "$file" ]] || fail "${file#"$prefix"/} is missing"
done
if [[ $failures -ne 0 ]]; then
    exit 1
fi

# desktop-file-validate exits successfully on warnings and hints; any message at all counts here.
messages="$(desktop-file-validate "$desktop" 2>&1)" || fail "desktop-file-validate failed"
[[ -z "$messages" ]] || fail "desktop-file-validate: $messages"

# validate-tree also checks the metainfo against the desktop entry its launchable names.
appstreamcli validate-tree --no-net --strict "$prefix" || fail "appstreamcli found issues"

# An unreadable icon makes desktops fall back to a generic one without a word.
python3 -c 'import sys, xml.etree.ElementTree as tree; [tree.parse(path) for path in sys.argv[1:]]' \
    "$icon" "$symbolic" || fail "an icon is not well-formed SVG"

entry() { sed -n "s/^$1=//p" "$desktop"; }
[[ "$(entry Exec)" == orvane ]] || fail "Exec= does not start the installed program: $(entry Exec)"
[[ "$(entry Icon)" == "$id" ]] || fail "Icon= does not name the installed icon: $(entry Icon)"
grep -q "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$metainfo" ||
    fail "the metainfo does not launch $id.desktop"
grep -q "<binary>orvane</binary>" "$metainfo" || fail "the metainfo does not provide the orvane binary"
# Software centres show the newest release as the version; it must be the one being built.
newest="$(sed -n 's/.*<release version="\([^"]*\)".*/\1/p' "$metainfo" | head -n 1)"
[[ "$newest" == "$version" ]] || fail "the newest metainfo release is '$newest', the project is $version"

# The package's licence statement must name the licence the sources carry.
grep -q '^License: GPL-3+$' "$copyright" || fail "the copyright file does not state GPL-3+"

if [[ $failures -ne 0 ]]; then
    exit 1
fi
echo "installation checks passed"
