#!/usr/bin/env bash
# Measures what the tests run of the library: lines and branches of Cairn/ and CairnCommon/. Fails if a line is
# missing. The report, a page a file, is build/coverage/report/index.html.
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

install_packages "${build_packages[@]}" "${test_packages[@]}" gcovr
cmake --preset dev -B build/coverage -DCAIRN_COVERAGE=ON -DCAIRN_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build/coverage
find build/coverage -name '*.gcda' -delete
ctest --test-dir build/coverage -j "$( nproc )" --output-on-failure --no-tests=error

mkdir -p build/coverage/report
# Branches to the clean-up of exceptions cannot be taken: recipes are noexcept, and what throws ends the
# process. Some remain that the compiler makes for constructors, and are not gated.
gcovr --root . --object-directory build/coverage --filter Cairn/ --filter CairnCommon/ \
    --exclude-throw-branches --exclude-unreachable-branches \
    --html-details build/coverage/report/index.html --print-summary \
    --fail-under-line 100
