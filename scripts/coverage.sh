#!/usr/bin/env bash
# Measures what the tests run of the library: lines and branches of Cairn/ and CairnCommon/. Fails if a line or a
# branch is missing that check_branches.py does not explain. The report, a page a file, is
# build/coverage/report/index.html.
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

install_packages "${build_packages[@]}" "${test_packages[@]}" gcovr python3
cmake --preset dev -B build/coverage -DCAIRN_COVERAGE=ON -DCAIRN_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build/coverage
find build/coverage -name '*.gcda' -delete
# The tests of the built files are about libraries without counters in them.
ctest --test-dir build/coverage -j "$( nproc )" --output-on-failure --no-tests=error --exclude-regex '^library\.'

mkdir -p build/coverage/report
# Branches that an exception takes out of a recipe do not exist for a caller: recipes are noexcept, and what throws
# ends the process. Tests show that it does.
gcovr --root . --object-directory build/coverage --filter Cairn/ --filter CairnCommon/ \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details build/coverage/report/index.html --json build/coverage/report/coverage.json
scripts/check_branches.py build/coverage/report/coverage.json
