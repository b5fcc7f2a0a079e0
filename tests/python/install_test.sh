#!/usr/bin/env bash
# Installs the built project, moves the installed tree, and runs a user's test with what is in there.
#
#     install_test.sh BUILD_TREE WORK_FOLDER PYTHON PACKAGES
#
# PACKAGES is the folder of the package below the prefix.
set -euo pipefail
source=$( cd "$( dirname "${BASH_SOURCE[0]}" )/../.." && pwd )
build=$1
work=$2
python=$3
packages=$4

rm -rf "$work"
mkdir -p "$work"
# Nothing but the interpreter runs with what a sanitizer needs there.
env -u LD_PRELOAD cmake --install "$build" --prefix "$work/installed" >/dev/null
env -u LD_PRELOAD mv "$work/installed" "$work/moved"
cp "$source/examples/test_tunnels.py" "$work"
cd "$work"
export PYTHONPATH=$work/moved/$packages
"$python" -m pytest -q -p no:cacheprovider test_tunnels.py
loaded=$( "$python" -c '
import cairn_lt
for line in open( "/proc/self/maps" ):
    if "Cairn" in line or "cairn" in line:
        print( line.split()[-1] )' | sort -u )
if grep -v "^$work/moved/" <<<"$loaded"; then
    echo "the installed package loads what is not installed"
    exit 1
fi
