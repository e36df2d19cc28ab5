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
# Files of the Python package that are the same in both (its __init__.py) may be shared.
shared=$(comm -12 "$work/files-5" "$work/files-6" | while read -r file; do
    case $file in
        */ternwick_nereon/*) cmp -s "$work/alone-5/$file" "$work/alone-6/$file" && continue ;;
    esac
    echo "$file"
done)
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

# The Python module: each flavour from the shared prefix, then built by pip against it.
package_dir=$(cd "$prefix" && find . -type d -name ternwick_nereon | head -1)
if [ -z "$package_dir" ]; then
    echo "Python module not installed: not checked"
    exit 0
fi
root=$(cd "$here/../.." && pwd)
check_import() { # <python> <flavour> [environment...]
    local python=$1 flavour=$2
    shift 2
    env "$@" "$runner" "$python" -c "import numpy, PyQt$flavour.QtWidgets, ternwick_nereon as tn
assert tn.FanDisplay.__module__ == 'ternwick_nereon.qt$flavour', tn.FanDisplay.__module__
app = PyQt$flavour.QtWidgets.QApplication([])
tn.FanDisplay().newImageReceived(tn.NereonImage(numpy.zeros((2, 4), 'uint8'), [-1, 0, 1, 2], 5.0))"
}
for flavour in 5 6; do
    echo "== import ternwick_nereon (PyQt$flavour) from the shared prefix"
    check_import /usr/bin/python3 $flavour PYTHONPATH="$prefix/$(dirname "$package_dir")"
done
/usr/bin/python3 -m venv --system-site-packages "$work/venv"
for flavour in 5 6; do
    echo "== pip install (PyQt$flavour) against the shared prefix"
    (cd "$root" && NEREON_QT=$flavour PKG_CONFIG_PATH="$prefix/lib/pkgconfig" \
        "$work/venv/bin/pip" install --no-build-isolation --no-index --force-reinstall --no-deps . \
        > "$work/pip-$flavour.log" 2>&1) || { cat "$work/pip-$flavour.log" >&2; exit 1; }
    (cd "$work" && check_import "$work/venv/bin/python" $flavour)
done
