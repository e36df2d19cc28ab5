#!/usr/bin/env bash
# Installs what is missing, builds the project and its API reference, and runs
# every test headless; then builds and tests again in a separate
# AddressSanitizer + UndefinedBehaviorSanitizer build.
# Then fuzzes the frame path for a minute (scripts/fuzz.sh).
# Set NEREON_SKIP_SANITIZERS=1 to run only the first pass, NEREON_SKIP_FUZZ=1 to
# leave out the fuzzing.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

"$root/scripts/install-deps.sh"

echo "== Build and test =="
"$root/scripts/build.sh" "$root/build"
# The API reference; fails on any Doxygen warning, such as an undocumented public member.
cmake --build "$root/build" --target docs
(cd "$root/build" && ctest --output-on-failure --parallel "$jobs")

if [ "${NEREON_SKIP_SANITIZERS:-0}" != 1 ]; then
    echo "== Build and test with AddressSanitizer and UndefinedBehaviorSanitizer =="
    "$root/scripts/build.sh" "$root/build-sanitize" -DNEREON_SANITIZE=ON \
        -DNEREON_BUILD_BENCHMARKS=OFF -DNEREON_BUILD_EXAMPLES=OFF
    export ASAN_OPTIONS=detect_leaks=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    (cd "$root/build-sanitize" && ctest --output-on-failure --parallel "$jobs")

    # A minute of fuzzing the frame path with clang's libFuzzer; any finding fails.
    if [ "${NEREON_SKIP_FUZZ:-0}" != 1 ]; then
        "$root/scripts/fuzz.sh" "${NEREON_FUZZ_SECONDS:-60}"
    fi
fi
