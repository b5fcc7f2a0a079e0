#!/usr/bin/env bash
# Makes the source archive and the Debian packages of the committed tree, and checks them:
#
#     the version is the same in CMake, debian/changelog, CHANGELOG.md and the manual pages
#     the full tests pass
#     the archive has the same bytes each time; two builds of the packages, in two folders, have the same bytes
#     lintian has nothing to say, down to the pedantic
#
#     scripts/release.sh [OUT]             OUT: out/release unless given; it must not exist
#     scripts/release.sh --draft [OUT]     without the full tests, also of a version that is not released yet
#
# The packages are tried in a root of their own by scripts/bare-debian.sh --packages.
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh
fail() {
    echo "release.sh: $1" >&2
    exit 1
}

draft=
if [ "${1-}" = --draft ]; then
    draft=yes
    shift
fi
if [ $# -gt 1 ] || [[ "${1-}" == -* ]]; then
    sed -n '2,12s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
out=$( realpath -m "${1-out/release}" )
[ ! -e "$out" ] || fail "$out exists; remove it, or name a folder that does not"
[ -z "$( git status --porcelain )" ] || fail "the tree has changes that are not committed; commit them, or put them aside"

echo "== version"
bash tests/library/versions_test.sh . || fail "the version is not the same everywhere; make it so"
version=$( sed -n '1s/^[^ ]* (\([^)]*\)).*/\1/p' debian/changelog )
if [ -z "$draft" ] && ! grep -qE "^## $version, [0-9]{4}-[0-9]{2}-[0-9]{2}\$" CHANGELOG.md; then
    fail "CHANGELOG.md has no heading \"## $version, YEAR-MONTH-DAY\"; write the day of the release, or make a --draft"
fi
name=cairn-lt-helper-$version

if [ -z "$draft" ]; then
    echo "== tests"
    scripts/test.sh --all
fi

install_packages "${packaging_packages[@]}"
if ! dpkg-checkbuilddeps 2>/dev/null; then
    fail "$( dpkg-checkbuilddeps 2>&1 | sed 's/.*error: //' ); install them with: apt-get build-dep ."
fi
work=$( mktemp -d )
trap 'rm -rf "$work"' EXIT

echo "== source archive"
archive() { git archive --format=tar --prefix="$name/" HEAD | gzip -n -9; }
archive >"$work/$name.tar.gz"
archive | cmp - "$work/$name.tar.gz" || fail "the source archive is not the same each time"

# The second build differs in all that should make no difference.
echo "== packages"
build() { # folder, environment...
    local folder=$1
    shift
    mkdir -p "$folder"
    tar -xzf "$work/$name.tar.gz" -C "$folder"
    ( cd "$folder/$name" && env "$@" dpkg-buildpackage -us -uc ) >"$folder.log" 2>&1 || {
        tail -n 60 "$folder.log" >&2
        fail "the packages do not build"
    }
    rm -rf "${folder:?}/$name"
}
build "$work/one" TZ=UTC
( umask 0027 && build "$work/another-and-longer-name" TZ=Asia/Kolkata LC_ALL=C DEB_BUILD_OPTIONS="nocheck parallel=1" HOME=/nonexistent )
differing=0
for package in "$work"/one/*.deb "$work"/one/*.tar.*; do
    if ! cmp "$package" "$work/another-and-longer-name/${package##*/}"; then
        differing=1
    fi
done
[ $differing -eq 0 ] || fail "two builds of the packages differ; diffoscope shows where"

echo "== lintian"
# Machine code may look like a word that is misspelt.
lintian --fail-on error,warning,info,pedantic --display-info --pedantic --suppress-tags spelling-error-in-binary \
    "$work"/one/*.changes ||
    fail "lintian finds something; repair it, or override it with a reason in debian/"

mkdir -p "$out"
cp "$work/$name.tar.gz" "$work"/one/* "$out"
( cd "$out" && sha256sum -- *.tar.* *.deb *.dsc >SHA256SUMS )
echo "$out:"
( cd "$out" && ls )
