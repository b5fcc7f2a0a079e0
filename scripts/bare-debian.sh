#!/usr/bin/env bash
# Tries the README's first command in an empty Debian 12: debootstrap's minimal variant, nothing else
# installed, a clone of the committed tree. Needs root. The root folder is kept, so that a failure can be
# looked at; remove it by hand.
#
#     scripts/bare-debian.sh ROOT [COMMAND...]     COMMAND: ./scripts/bringup.sh unless given
#     scripts/bare-debian.sh --packages ROOT       the Debian packages: built, installed, tested, purged without a trace
#
# Packages come from where this machine gets its own: its apt configuration is used inside.
set -euo pipefail
source_tree=$( cd "$( dirname "${BASH_SOURCE[0]}" )/.." && pwd )

if [ $# -eq 0 ]; then
    sed -n '2,9s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
if [ "$1" = --packages ]; then
    if [ $# -ne 2 ]; then
        echo "bare-debian.sh: --packages takes one folder, that of the root to make" >&2
        exit 2
    fi
    set -- "$2" ./scripts/try_packages.sh
fi
root=$1
shift
[ $# -gt 0 ] || set -- ./scripts/bringup.sh
if [ "$( id -u )" -ne 0 ]; then
    echo "bare-debian.sh: must be root, to make and enter another root" >&2
    exit 2
fi
if [ -e "$root" ]; then
    echo "bare-debian.sh: $root exists; name a folder that does not" >&2
    exit 2
fi
source "$source_tree/scripts/packages.sh"
install_packages debootstrap git

mirror=$( apt-get indextargets --format '$(REPO_URI)' 'Codename: bookworm' | head -n 1 )
debootstrap --variant=minbase bookworm "$root" "$mirror"
rm "$root/etc/apt/sources.list" # that mirror is in the configuration that follows
for file in /etc/apt/apt.conf.d/* /etc/apt/sources.list /etc/apt/sources.list.d/* /etc/resolv.conf /etc/hosts; do
    if [ -f "$file" ]; then
        cp --parents -L "$file" "$root"
    fi
done
git clone --quiet "$source_tree" "$root/root/CairnLtHelper"

mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
mount --make-rslave "$root/dev"
trap 'umount -l "$root/dev"; umount "$root/proc"' EXIT
chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin TERM=dumb \
    bash -c 'cd /root/CairnLtHelper && exec "$@"' bash "$@"
