#!/usr/bin/env bash
# Every place that names the version of the release names the same one.
#
#     versions_test.sh SOURCE_TREE
set -euo pipefail
cd "$1"
version=$( sed -n 's/^project( CairnLtHelper VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt )
if ! [[ $version =~ ^[0-9]+\.[0-9]+\.[0-9]+$ ]]; then
    echo "CMakeLists.txt has no version MAJOR.MINOR.PATCH in its project(): \"$version\""
    exit 1
fi
failed=0
check() { # place, what it says
    if [ "$2" != "$version" ]; then
        echo "$1 has the version \"$2\", CMakeLists.txt has $version"
        failed=1
    fi
}
check debian/changelog "$( sed -n '1s/^[^ ]* (\([^)]*\)).*/\1/p' debian/changelog )"
check "the newest heading of CHANGELOG.md" "$( sed -n 's/^## \([^ ]*\).*/\1/p' CHANGELOG.md | head -n 1 )"
check "docs/man/cairn-lt.1" "$( sed -n 's/^\.TH .*"cairn-lt \([^"]*\)".*/\1/p' docs/man/cairn-lt.1 )"
exit $failed
