#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test headless in
# separate passes, and prints how long each pass took:
#   qt5        the default Qt 5.15 build (build/) and its API reference, which
#              fails on any Doxygen warning such as an undocumented public member
#   qt6        the Qt 6 build (build-qt6/, -DNEREON_QT_MAJOR_VERSION=6)
#   packages   both flavours installed into one prefix, a consumer of each
#   sanitizers Qt 5 again with AddressSanitizer and UndefinedBehaviorSanitizer
#   fuzz       a minute of fuzzing the frame path with clang's libFuzzer (scripts/fuzz.sh)
#   arm64      a cross build for 64-bit ARM whose display-free tests run under qemu-user
# NEREON_SKIP_SANITIZERS=1 leaves out the sanitizer and fuzz passes,
# NEREON_SKIP_FUZZ=1 the fuzz pass, NEREON_SKIP_ARM64=1 the arm64 pass. If the arm64 packages cannot be installed, the arm64 pass
# reports apt's error and is skipped, unless NEREON_REQUIRE_ARM64=1.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)
summary=()

timed() {
    local name=$1
    shift
    local start=$SECONDS
    echo "== $name =="
    "$@"
    summary+=("$(printf '%-11s %4d s' "$name" $((SECONDS - start)))")
}

# build_and_test <build-dir> [--docs] [CMake arguments...]
build_and_test() {
    local dir=$1 docs=0
    shift
    if [ "${1:-}" = --docs ]; then
        docs=1
        shift
    fi
    "$root/scripts/build.sh" "$dir" "$@"
    if [ "$docs" = 1 ]; then
        cmake --build "$dir" --target docs
    fi
    (cd "$dir" && ctest --output-on-failure --parallel "$jobs")
}

sanitizer_pass() (
    export ASAN_OPTIONS=detect_leaks=1
    export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
    build_and_test "$root/build-sanitize" -DNEREON_SANITIZE=ON \
        -DNEREON_BUILD_BENCHMARKS=OFF -DNEREON_BUILD_EXAMPLES=OFF
)

arm64_pass() {
    local log
    log=$(mktemp)
    if ! "$root/scripts/install-deps.sh" arm64 > "$log" 2>&1; then
        cat "$log"
        rm -f "$log"
        echo "arm64: the multiarch packages could not be installed (apt's error above)" >&2
        if [ "${NEREON_REQUIRE_ARM64:-0}" = 1 ]; then
            return 1
        fi
        echo "arm64: pass skipped" >&2
        return 0
    fi
    cat "$log"
    rm -f "$log"
    local dir=$root/build-arm64
    cmake -S "$root" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/aarch64-linux-gnu.cmake" \
        -DNEREON_BUILD_BENCHMARKS=OFF -DNEREON_BUILD_EXAMPLES=OFF
    cmake --build "$dir" --parallel "$jobs"
    (cd "$dir" && ctest --output-on-failure --parallel "$jobs" -L no-display)
}

timed install "$root/scripts/install-deps.sh"
timed qt5 build_and_test "$root/build" --docs
timed qt6 build_and_test "$root/build-qt6" -DNEREON_QT_MAJOR_VERSION=6
timed packages "$root/tests/package/side-by-side.sh" "$root/build" "$root/build-qt6"
timed programs "$root/tests/package/installed-programs.sh" "$root/../shared/real-data/aris/sample.aris" "$root/build" "$root/build-qt6"
timed pip "$root/tests/package/pip.sh" "$root/build"
if [ "${NEREON_SKIP_SANITIZERS:-0}" != 1 ]; then
    timed sanitizers sanitizer_pass
    # Any finding fails.
    if [ "${NEREON_SKIP_FUZZ:-0}" != 1 ]; then
        timed fuzz "$root/scripts/fuzz.sh" "${NEREON_FUZZ_SECONDS:-60}"
    fi
fi
if [ "${NEREON_SKIP_ARM64:-0}" != 1 ]; then
    timed arm64 arm64_pass
fi

echo "== Time of each pass =="
printf '%s\n' "${summary[@]}"
