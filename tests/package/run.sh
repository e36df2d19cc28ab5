#!/usr/bin/env bash
# Usage: run.sh <build-dir> <consumer-source-dir> <headless-runner> <flavour-suffix>
#               [extra CMake arguments for the consumer...]
# The flavour suffix is "" for the Qt 5 build and "-qt6" for the Qt 6 build.
# NEREON_CONSUMER_FLAGS: extra compiler and linker flags for the pkg-config consumer.
set -euo pipefail
build_dir=$1
consumer_dir=$2
runner=$3
suffix=$4
shift 4
qt_major=5
[ "$suffix" = -qt6 ] && qt_major=6

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

if [ -d "$build_dir/designer" ]; then
    plugin=$(find "$prefix" -path '*/plugins/designer/*' -name 'libternwick-nereon-visualisation-designer*.so' | head -n 1)
    if [ -z "$plugin" ]; then
        echo "FAIL: the Designer plugin is not installed in a Qt plugin folder" >&2
        exit 1
    fi
    # Designer loads it from there: the library must be found through its RUNPATH.
    resolved=$(ldd "$plugin" | awk '/libternwick-nereon-visualisation/ { print $3 }')
    if [ "$(readlink -f "$resolved")" != "$(readlink -f "$library")" ]; then
        echo "FAIL: the installed Designer plugin does not find the installed library (found: $resolved)" >&2
        exit 1
    fi
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

echo "== build and run the consumer with pkg-config"
# The module is named after the library file.
module=$(basename "$library" .so.2)
module=${module#lib}
pc_file=$(find "$prefix" -name "$module.pc" | head -n 1)
if [ -z "$pc_file" ]; then
    echo "FAIL: $module.pc is not installed" >&2
    exit 1
fi
export PKG_CONFIG_PATH=$(dirname "$pc_file")
unset PKG_CONFIG_LIBDIR
pc_version=$(pkg-config --modversion "$module")
pc_libdir=$(pkg-config --variable=libdir "$module")
# Deliberately unquoted: pkg-config's output is a list of flags.
# shellcheck disable=SC2046,SC2086
${CXX:-c++} -std=c++17 ${NEREON_CONSUMER_FLAGS:-} -DNEREON_PACKAGE_VERSION="\"$pc_version\"" -DNEREON_EXPECTED_QT_MAJOR=$qt_major \
    "$consumer_dir/main.cpp" -o "$work/consumer-pkgconfig" \
    $(pkg-config --cflags --libs "$module" "ternwick-nereon-sources$suffix") -Wl,-rpath,"$pc_libdir" > "$work/pkgconfig.log" 2>&1 \
    || { cat "$work/pkgconfig.log" >&2; exit 1; }
"$runner" "$work/consumer-pkgconfig"
