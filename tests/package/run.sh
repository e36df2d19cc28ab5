#!/usr/bin/env bash
# Usage: run.sh <build-dir> <consumer-source-dir> <headless-runner> <flavour-suffix>
#               [extra CMake arguments for the consumer...]
# The flavour suffix is "" for the Qt 5 build and "-qt6" for the Qt 6 build.
set -euo pipefail
build_dir=$1
consumer_dir=$2
runner=$3
suffix=$4
shift 4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

echo "== install into $prefix"
cmake --install "$build_dir" --prefix "$prefix" > "$work/install.log"

library=$(find "$prefix" -name "libternwick-nereon-visualisation$suffix.so.2" | head -n 1)
if [ -z "$library" ] || [ ! -L "$library" ]; then
    echo "FAIL: libternwick-nereon-visualisation$suffix.so.2 is not installed as a SONAME link" >&2
    exit 1
fi
for host in "libternwick-gui$suffix.so.4" "libternwick-maths$suffix.so.1" "libternwick-nereon$suffix.so.2"; do
    if [ -z "$(find "$prefix" -name "$host")" ]; then
        echo "FAIL: $host is not installed" >&2
        exit 1
    fi
done
if grep -rq 'nereon-visualisation-objects' "$(dirname "$library")/cmake"; then
    echo "FAIL: the object library leaks into the installed package" >&2
    exit 1
fi

echo "== a request for another major version is refused"
for version in 1 3; do
    if cmake -S "$consumer_dir" -B "$work/refused-$version" -DCMAKE_PREFIX_PATH="$prefix" \
        -DNEREON_REQUIRED_VERSION=$version "$@" > "$work/refused-$version.log" 2>&1; then
        echo "FAIL: find_package accepted version $version" >&2
        exit 1
    fi
done

echo "== configure, build and run the consumer"
cmake -S "$consumer_dir" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$prefix" "$@" > "$work/configure.log" \
    || { cat "$work/configure.log" >&2; exit 1; }
cmake --build "$work/consumer" > "$work/build.log" 2>&1 || { cat "$work/build.log" >&2; exit 1; }
"$runner" "$work/consumer/consumer"
