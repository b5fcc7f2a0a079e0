#!/usr/bin/env bash
# Installs the libraries and the kit, and builds the example agent on them, as a project of its own.
#
#     build_test.sh BUILD_TREE SOURCES WORK_FOLDER [CMAKE_ARGUMENT...]
#
# EMULATE in the environment is a command that makes a program run in an emulator.
set -euo pipefail
build=$1
sources=$2
work=$3
shift 3

rm -rf "$work"
mkdir -p "$work"
{
    for component in runtime development kit; do
        cmake --install "$build" --prefix "$work/installed" --component "$component"
    done
    cmake -S "$sources" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/installed" "$@"
    cmake --build "$work/build"
    cmake --install "$work/build" --prefix "$work/agent"
} >"$work/log" 2>&1 || {
    cat "$work/log"
    exit 1
}
if [ -n "${EMULATE-}" ]; then
    $EMULATE "$work/agent/bin/example-agent"
fi
if ! grep -q "^ExecStart=.*/bin/example-agent --trace-to" "$work/agent/lib/systemd/system/example-agent.service"; then
    echo "the unit file does not start the agent"
    exit 1
fi
