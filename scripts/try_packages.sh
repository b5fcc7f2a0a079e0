#!/usr/bin/env bash
# Builds the Debian packages of this tree, installs them, tests what is installed, purges them, and looks for what they
# have left behind. It changes the system that it runs in: scripts/bare-debian.sh --packages gives it one of its own.
#
#     scripts/try_packages.sh             the committed tree
#     scripts/try_packages.sh FOLDER      packages that were built before
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

if [ $# -gt 1 ] || [[ "${1-}" == -* ]]; then
    sed -n '2,6s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
if [ "$( id -u )" -ne 0 ]; then
    echo "try_packages.sh: must be root, to install and purge packages" >&2
    exit 2
fi
export DEBIAN_FRONTEND=noninteractive
work=$( mktemp -d )
trap 'rm -rf "$work"' EXIT
built=${1-$work}
if [ ! -d "$built" ]; then
    echo "try_packages.sh: no folder $built; name the one that has the packages" >&2
    exit 2
fi
apt() { apt-get -y -qq --no-install-recommends "$@" >"$work/apt.log" || { cat "$work/apt.log"; return 1; } }

if [ $# -eq 0 ]; then
    echo "== build"
    install_packages "${packaging_packages[@]}"
    apt build-dep .
    mkdir "$work/source"
    git archive HEAD | tar -x -C "$work/source"
    ( cd "$work/source" && dpkg-buildpackage -b -us -uc ) >"$work/build.log" 2>&1 || {
        tail -n 100 "$work/build.log"
        exit 1
    }
    rm -rf "$work/source"
fi
ours=( $( sed -n 's/^Package: //p' debian/control ) )
packages=()
for package in "${ours[@]}"; do
    found=( "$built/$package"_*.deb )
    if [ ${#found[@]} -ne 1 ] || [ ! -e "${found[0]}" ]; then
        echo "try_packages.sh: there must be one $package in $built: ${found[*]}" >&2
        exit 2
    fi
    packages+=( "$( realpath "${found[0]}" )" )
done

echo "== install"
# What ours and the tests need comes first, so that afterwards ours are the only difference.
needed=( $( apt-get -s --no-install-recommends install "${packages[@]}" $( debian/tests/run-installed --needed ) |
    sed -n 's/^Inst \([^ ]*\).*/\1/p' | grep -vxF "$( printf '%s\n' "${ours[@]}" )" || true ) )
[ ${#needed[@]} -eq 0 ] || apt install "${needed[@]}"
# Logs, lists of the package manager, its own backups and the pages that man keeps are not the packages'.
files() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /run -o -path /tmp -o -path /root -o -path /var/log \
        -o -path /var/cache/apt -o -path /var/lib/apt -o -path '/var/cache/man/cat*' \) -prune -o -print | grep -vE '^/var/lib/dpkg/(.*-old$|lock|triggers/)' |
        LC_ALL=C sort
}
files >"$work/before"
apt install "${packages[@]}"
files >"$work/installed"
echo "$( comm -13 "$work/before" "$work/installed" | wc -l ) files"

echo "== test"
debian/tests/run-installed

echo "== purge"
apt purge "${ours[@]}"
files >"$work/after"
if ! diff "$work/before" "$work/after" >"$work/left"; then
    echo "try_packages.sh: the packages have left behind (>) or taken away (<):" >&2
    cat "$work/left" >&2
    exit 1
fi
if ldconfig -p | grep libCairn; then
    echo "try_packages.sh: the loader still knows the libraries" >&2
    exit 1
fi
echo "Built, installed, tested and purged: ${ours[*]}"
