#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (ASan + UBSan) and runs each one over
# its committed corpus for a bounded time. A crash, a leak or any sanitizer
# report fails the run; the input that caused it is kept in the build folder.
#
# Usage: scripts/fuzz.sh [seconds per target, default 60] [more libFuzzer options...]
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
seconds=${1:-60}
shift || true
build_dir=${NEREON_FUZZ_BUILD_DIR:-"$root/build-fuzz"}

CXX=clang++ cmake -S "$root" -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DNEREON_BUILD_FUZZERS=ON -DNEREON_BUILD_TESTS=OFF -DNEREON_BUILD_EXAMPLES=OFF \
    -DNEREON_BUILD_BENCHMARKS=OFF
# One target for every folder of seeds: fuzz/corpus/<name> goes with fuzz/fuzz_<name>.cpp.
targets=()
for corpus in "$root"/fuzz/corpus/*/; do
    targets+=("$(basename "$corpus")")
done
cmake --build "$build_dir" --parallel "$(nproc)" --target "${targets[@]/#/fuzz_}"

# New inputs go to a scratch folder; the committed corpus is only read.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export XDG_RUNTIME_DIR="$scratch"
chmod 700 "$scratch"
export ASAN_OPTIONS=detect_leaks=1
export LSAN_OPTIONS=suppressions="$root/fuzz/lsan.supp"
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

# NEREON_FUZZ_CORPUS names a folder that keeps the inputs found, for longer runs.
found=${NEREON_FUZZ_CORPUS:-"$scratch/found"}

for target in "${targets[@]}"; do
    echo "== Fuzzing $target for $seconds s =="
    mkdir -p "$found/$target"
    "$build_dir/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$build_dir/fuzz/$target-" "$@" \
        "$found/$target" "$root/fuzz/corpus/$target"
done
