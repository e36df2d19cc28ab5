#!/usr/bin/env bash
# Installs the Qt 5 and the Qt 6 build into one prefix, checks that no file is
# installed by both, and builds and runs a consumer against each flavour there.
# Usage: side-by-side.sh <qt5-build-dir> <qt6-build-dir>
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
runner=$here/../run-headless.sh
qt5_build=$1
qt6_build=$2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Each flavour alone first, to compare what they install.
for flavour in 5 6; do
    build=$qt5_build
    [ "$flavour" = 6 ] && build=$qt6_build
    cmake --install "$build" --prefix "$work/alone-$flavour" > /dev/null
    (cd "$work/alone-$flavour" && find . ! -type d | sort) > "$work/files-$flavour"
done
shared=$(comm -12 "$work/files-5" "$work/files-6")
if [ -n "$shared" ]; then
    echo "FAIL: both flavours install these files:" >&2
    echo "$shared" >&2
    exit 1
fi

prefix=$work/prefix
cmake --install "$qt5_build" --prefix "$prefix" > /dev/null
cmake --install "$qt6_build" --prefix "$prefix" > /dev/null
for flavour in 5 6; do
    package=TernwickNereonVisualisation
    [ "$flavour" = 6 ] && package=TernwickNereonVisualisationQt6
    echo "== consumer of $package (Qt $flavour) in the shared prefix"
    cmake -S "$here/consumer" -B "$work/consumer-$flavour" -DCMAKE_PREFIX_PATH="$prefix" \
        -DNEREON_PACKAGE=$package -DNEREON_EXPECTED_QT_MAJOR=$flavour > "$work/configure-$flavour.log" \
        || { cat "$work/configure-$flavour.log" >&2; exit 1; }
    cmake --build "$work/consumer-$flavour" > "$work/build-$flavour.log" 2>&1 \
        || { cat "$work/build-$flavour.log" >&2; exit 1; }
    "$runner" "$work/consumer-$flavour/consumer"
done
