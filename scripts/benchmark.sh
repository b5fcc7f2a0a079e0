#!/usr/bin/env bash
# Builds the release, runs every benchmark, and writes docs/performance.md with its plot, and its raw figures to
# bench/performance.json. Leave the machine alone meanwhile: figures are times, and only ratios within one run compare.
#
#     scripts/benchmark.sh [FOLDER]     report and figures go to FOLDER
#
# To show another processor beside this one, run it there with a FOLDER, and copy FOLDER/performance.json to
# bench/processors/NAME.json.
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh
folder=${1-docs}
figures=${1-bench}/performance.json
if [ ! -d "$folder" ]; then
    echo "benchmark.sh: $folder is no folder; make it first" >&2
    exit 2
fi

install_packages "${build_packages[@]}" "${test_packages[@]}" libspdlog-dev liblttng-ust-dev lttng-tools babeltrace2 \
    python3 gnuplot-nox
build=build/benchmark
cmake --preset release -B "$build" -DCAIRN_BUILD_TESTS=OFF >/dev/null
cmake --build "$build"

raw=$build/raw
rm -rf "$raw"
mkdir -p "$raw"
run() { # name of the figures, command with the arguments of a benchmark...
    echo "== $1"
    local name=$1
    shift
    "$@" --benchmark_out="$raw/$name.json" --benchmark_out_format=json >/dev/null
}
run trace bash bench/trace_bench.sh "$build"
run recorder "$build/bin/recorder_bench" --benchmark_repetitions=5
run recipe "$build/bin/recipe_bench" --benchmark_min_time=0.3
run startup "$build/bin/startup_bench"
run system_port "$build/bin/system_port_bench"
run sim "$build/bin/sim_bench"
echo "== reader"
bash bench/trace_reader_bench.sh "$build" >"$raw/reader.tsv"
echo "== reading"
bench/reading_figures.py "$build" >"$raw/reading.tsv"
echo "== recording"
bench/recording_figures.py "$build" >"$raw/recording.tsv"
nm -D -C -S -t d --defined-only "$build/lib/libCairnLtHelper.so" >"$raw/symbols.txt"
bash tests/budgets/code_test.sh "$build/lib/libCairnLtHelper.so" Cairn/CairnLtHelper.cpp --report >"$raw/code.md"

processor=$( sed -n 's/^model name.*: //p' /proc/cpuinfo | head -n 1 )
bench/report.py "$raw" "$folder" "$figures" \
    "${processor:-$( uname -m )}, $( nproc ) processors, g++ $( g++ -dumpfullversion )"
echo "Written: $folder/performance.md, $folder/performance.svg, $figures"
