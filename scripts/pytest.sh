#!/usr/bin/env bash
# Runs pytest with recipes and the simulated chip at hand. Sets everything up; can be repeated.
#
#     scripts/pytest.sh                  the example, examples/test_tunnels.py
#     scripts/pytest.sh ARGUMENT...      pytest's arguments: your tests
set -euo pipefail
root=$( cd "$( dirname "${BASH_SOURCE[0]}" )/.." && pwd )
source "$root/scripts/packages.sh"

install_packages "${build_packages[@]}" "${python_packages[@]}"
( cd "$root" && cmake --preset release -B build/bringup -DCAIRN_BUILD_TESTS=OFF -DCAIRN_BUILD_BENCHMARKS=OFF \
    -DCAIRN_BUILD_PYTHON=ON >/dev/null )
cmake --build "$root/build/bringup" --target cairn_python_package

[ $# -gt 0 ] || set -- "$root/examples/test_tunnels.py"
export PYTHONPATH=$root/build/bringup/python${PYTHONPATH:+:$PYTHONPATH}
exec /usr/bin/python3 -m pytest "$@"
