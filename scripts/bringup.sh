#!/usr/bin/env bash
# Sets everything up and runs the main job: a bring-up on the simulated chip, every SDK call traced, and
# the table rows that it wrote. Can be repeated. Arguments are handed to "cairn-lt bringup" in place of the
# example's.
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

install_packages "${build_packages[@]}"
cmake --preset release -B build/bringup -DCAIRN_BUILD_TESTS=OFF -DCAIRN_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build/bringup --target cairn-lt

if [ $# -eq 0 ]; then
    set -- examples/bringup.toml --trace ApiCairn/4 --dump
fi
exec build/bringup/bin/cairn-lt bringup "$@"
