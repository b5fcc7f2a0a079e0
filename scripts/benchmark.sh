#!/usr/bin/env bash
# Builds the release and runs every benchmark, and writes what they print to docs/performance.md. Leave the
# machine alone meanwhile: figures are times, and only ratios within one run compare.
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

install_packages "${build_packages[@]}" "${test_packages[@]}" libspdlog-dev liblttng-ust-dev lttng-tools babeltrace2
cmake --preset release -B build/benchmark -DCAIRN_BUILD_TESTS=OFF >/dev/null
cmake --build build/benchmark

report=docs/performance.md
table() { # title, text, command that prints a Markdown table...
    printf '\n## %s\n\n%s\n\n' "$1" "$2"
    shift 2
    echo "== $*" >&2
    "$@" 2>/dev/null
}
listing() { # title, text, command...
    printf '\n## %s\n\n%s\n\n```\n' "$1" "$2"
    shift 2
    echo "== $*" >&2
    "$@" 2>/dev/null | sed "s,build/benchmark/bin/,,"
    printf '```\n'
}

{
    cat <<'TEXT'
# Performance

    ./scripts/benchmark.sh

repeats every figure of this page and writes it anew. Times differ from machine to machine; compare the ratios, which are
of one run, and the instruction counts, which are exact.
TEXT
    printf '\nThis run: %s, %s processors, g++ %s.\n' \
        "$( sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1 )" "$( nproc )" "$( g++ -dumpfullversion )"
    table "The always-on trace" \
        'A record against a hand-written mapped ring with the same stores (the floor), the bare counter, and other tracers.
Instructions are counted by stepping through one call.' \
        bash bench/trace_bench.sh build/benchmark
    table "Reading a trace" \
        'A file of a million records, and babeltrace2 on the same events as lttng-ust wrote them.' \
        bash bench/trace_reader_bench.sh build/benchmark
    listing "A recipe against the same shim calls written bare" \
        'Trace off, on the simulated chip, hooks included on both sides, both in turn within one iteration.' \
        build/benchmark/bin/recipe_bench --benchmark_min_time=2
    listing "System ports" \
        'Mappings programmed, verified and removed; the cost of one recipe, and what it takes from the heap.' \
        build/benchmark/bin/system_port_bench
    listing "The simulated chip" \
        'One visit is allocate, fields, commit, free. At a million rows a row that is visited at random is seldom in the
cache of the processor; "bareArray" shows what one such miss costs here.' \
        build/benchmark/bin/sim_bench
} >"$report.new"
mv "$report.new" "$report"
echo "Written: $report"
