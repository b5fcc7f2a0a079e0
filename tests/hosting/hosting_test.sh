#!/usr/bin/env bash
# Installs the built project, moves the installed tree, and lets an outside project use it: through CMake,
# through pkg-config, and with a platform of its own in place of the one that comes with the library.
#
#     hosting_test.sh BUILD_TREE WORK_FOLDER CXX_COMPILER
set -euo pipefail
here=$( cd "$( dirname "${BASH_SOURCE[0]}" )" && pwd )
build=$1
work=$2
compiler=$3

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/installed" >/dev/null
mv "$work/installed" "$work/moved"
libraries=$( dirname "$( find "$work/moved" -name libCairnLtHelper.so )" )

# Only what was installed may be found.
export PKG_CONFIG_PATH=$libraries/pkgconfig
found=$( "$work/moved/bin/cairn-lt" list )
if [ "$found" != "$( "$build/bin/cairn-lt" list )" ] || [ -z "$found" ]; then
    echo "the installed cairn-lt says: $found"
    exit 1
fi
for file in share/man/man1/cairn-lt-run.1 share/man/man5/fleetlog.5 share/bash-completion/completions/cairn-lt \
    share/zsh/site-functions/_cairn-lt share/fish/vendor_completions.d/cairn-lt.fish \
    share/doc/CairnLtHelper/README.md share/doc/CairnLtHelper/docs/hosting.md \
    share/doc/CairnLtHelper/examples/bringup.toml; do
    if [ ! -f "$work/moved/$file" ]; then
        echo "$file is not installed"
        exit 1
    fi
done
# A component alone is what it is called.
component() { # name, files that it has, sorted
    cmake --install "$build" --prefix "$work/$1" --component "$1" >/dev/null
    if [ "$( cd "$work/$1" && find . -type f | sort | tr '\n' ' ' )" != "$2" ]; then
        echo "the component $1 has: $( find "$work/$1" -type f )"
        exit 1
    fi
}
component runtime "./${libraries#"$work/moved/"}/libCairnLtHelper.so ./${libraries#"$work/moved/"}/libCairnPlatform.so "
# Headers of two other versions: a class is larger, and two members of a class have changed their places.
other() { # version, header, change
    cp -r "$work/moved/include/CairnLtHelper" "$work/$1"
    sed -i "$3" "$work/$1/$2"
    if cmp -s "$work/moved/include/CairnLtHelper/$2" "$work/$1/$2"; then
        echo "$2 has not what is to be changed in it"
        exit 1
    fi
}
other larger Kiln/ActivityLock.h 's/^    MaybeGilUnlockAnchor interpreter_;/    void * added_[2];\n&/'
other moved_members ChipModel/CairnCommonSmData.h 's/ slot = / swapped = /; s/ unit = / slot = /; s/ swapped = / unit = /'
cmake -S "$here" -B "$work/host" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$work/moved" -DOTHER_HEADERS="$work" >/dev/null
cmake --build "$work/host" >"$work/build.log" || {
    cat "$work/build.log"
    exit 1
}

calls='allocate 0 EGR_TUNNEL_ECN_ENCAPm
add 100 BCMLT_PT_INDEX 5
add 100 OUTER_ECN 2
pt_commit 100 8 6
free 100
MESSAGE
allocate 1 MON_ING_TRACE_EVENT
symbol 100 MON_ING_TRACE_EVENT_ID L3_TTL_ERROR
add 100 CPU 1
commit 100 3 6
free 100'
own_line="host's line: programMonTraceCpu unit: %s errorType: %s with 1 L3_TTL_ERROR"

failed=0
check() { # what, expected, found
    if ! difference=$( diff <( printf '%s\n' "$2" ) <( printf '%s\n' "$3" ) ); then
        printf '%s differs (< expected, > found):\n%s\n' "$1" "$difference"
        failed=1
    fi
}

check "What the host built with CMake printed" "$( grep -v MESSAGE <<<"$calls" )" "$( "$work/host/host" )"
check "What the host built with pkg-config printed" "$( grep -v MESSAGE <<<"$calls" )" \
    "$( LD_LIBRARY_PATH=$libraries "$work/host/host_pc" )"
operations='OUTER_ECN 2
bcmlt_entry_allocate 0
bcmlt_entry_field_add 0
bcmlt_entry_field_add 0
bcmlt_pt_entry_commit 0
bcmlt_entry_free 7'
for kit in kit kit_pc; do
    mkdir "$work/$kit"
    check "What $kit printed" "$operations" "$( LD_LIBRARY_PATH=$libraries "$work/host/$kit" "$work/$kit" )"
done
check "What the host with its own platform printed" "${calls/MESSAGE/$own_line}" \
    "$( LD_LIBRARY_PATH=$work/host:$libraries "$work/host/host" )"
for version in larger moved_members; do
    if LD_LIBRARY_PATH=$work/host/$version:$libraries "$work/host/host" >"$work/$version.log" 2>&1; then
        echo "The library loads with a platform that was built from other headers ($version)"
        failed=1
    elif ! grep -q "undefined symbol: .*libraryAndPlatformMustBeBuiltFromTheSameHeaders" "$work/$version.log"; then
        echo "What stops a library whose platform was built from other headers ($version) does not say so:"
        cat "$work/$version.log"
        failed=1
    fi
done
exit $failed
