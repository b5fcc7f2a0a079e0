#!/usr/bin/env bash
# Kills processes that trace, at any moment, and reads what they left.
#
#     scripts/kill_traces.sh [--kills N] [--seed N]      10,000 kills unless told otherwise
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

install_packages "${build_packages[@]}" "${test_packages[@]}"
cmake --preset release >/dev/null
cmake --build --preset release --target trace_kill_run >/dev/null
exec build/release/bin/trace_kill_run --kills 10000 "$@"
