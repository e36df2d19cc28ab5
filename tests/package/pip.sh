#!/usr/bin/env bash
# `pip install .` as a user runs it: from a clean clone, into a fresh virtual
# environment of Debian's Python that sees the system's PyQt, once with the C++
# libraries built into the package and once against an installed library.
# Each time the module is imported, makes a frame from NumPy and shows a display
# under Xvfb, and its libraries must come from where the mode says.
# Usage: pip.sh <qt5-build-dir>     (its install is the "installed library")
# ccache speeds the libraries' build when it is installed.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
runner=$here/../run-headless.sh
build=$(cd "$1" && pwd)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
git clone --quiet "$root" "$work/src"
if command -v ccache > /dev/null; then
    # Clone and build folders side by side under $work, whose paths then count as
    # relative: the next run's clone hits the cache.
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$work CCACHE_NOHASHDIR=1
fi

# The display must draw the frame: the fan's middle differs from its corner.
cat > "$work/show.py" <<'EOF'
import numpy as np
from PyQt5 import QtCore, QtWidgets
import ternwick_nereon as tn

app = QtWidgets.QApplication([])
display = tn.FanDisplay()
display.resize(300, 300)
display.newImageReceived(tn.NereonImage(np.full((100, 64), 200, np.uint8), np.linspace(-30, 30, 64), 20.0))
display.show()
for _ in range(20):
    app.processEvents()
    QtCore.QThread.msleep(20)
picture = display.grabFramebuffer()
corner, fan = picture.pixel(2, 2), picture.pixel(150, 200)
assert corner != fan, "the frame was not drawn"
print(tn.__file__)
EOF

pip_install() { # <mode> [environment...]
    local mode=$1
    shift
    /usr/bin/python3 -m venv --system-site-packages "$work/venv-$mode"
    local start=$SECONDS
    (cd "$work/src" && env NEREON_LIBRARIES="$mode" "$@" "$work/venv-$mode/bin/pip" install --no-index --no-deps \
        --config-settings=--build-dir="$work/build-$mode" . \
        > "$work/pip-$mode.log" 2>&1) || { cat "$work/pip-$mode.log" >&2; exit 1; }
    echo "pip install ($mode): $((SECONDS - start)) s"
    package=$(cd "$work" && "$runner" "$work/venv-$mode/bin/python" "$work/show.py" | tail -n 1)
    package=$(dirname "$package")
    module=$(ls "$package"/qt5.*.so)
}

# Where the loader finds the module's own libraries.
found_in() {
    ldd "$module" | awk '/libternwick-/ { print $3 }' | xargs -n 1 dirname | sort -u
}

echo "== an environment without the system's PyQt gets one sentence, not a traceback"
/usr/bin/python3 -m venv "$work/venv-bare"
if (cd "$work/src" && "$work/venv-bare/bin/pip" install --no-index . > "$work/pip-bare.log" 2>&1) \
    || ! grep -q 'ternwick-nereon: .* has no sip: .*--system-site-packages' "$work/pip-bare.log" \
    || grep -q Traceback "$work/pip-bare.log"; then
    cat "$work/pip-bare.log" >&2
    echo "FAIL: pip did not stop with the one-sentence message" >&2
    exit 1
fi

echo "== pip install, libraries built into the package"
pip_install bundled
if [ "$(found_in)" != "$package" ]; then
    echo "FAIL: the bundled module loads libraries from $(found_in), not $package" >&2
    exit 1
fi
if ! readelf -d "$module" | grep -q 'RUNPATH.*\[\$ORIGIN\]'; then
    echo "FAIL: the bundled module's run path is not \$ORIGIN" >&2
    exit 1
fi

echo "== pip install against an installed library"
cmake --install "$build" --prefix "$work/prefix" > /dev/null
pip_install system PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
if [ "$(found_in)" != "$work/prefix/lib" ] || compgen -G "$package/lib*.so*" > /dev/null; then
    echo "FAIL: the module does not use the installed library alone ($(found_in))" >&2
    exit 1
fi
