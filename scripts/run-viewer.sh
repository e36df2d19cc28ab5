#!/usr/bin/env bash
# Installs what is missing, builds the viewer and opens it on its simulated sonar.
# Without a usable display it runs the viewer under Xvfb instead, saves a
# screenshot and prints where. Extra arguments go to the viewer (see --help);
# NEREON_BUILD_DIR picks another build folder than build/.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${NEREON_BUILD_DIR:-"$root/build"}

"$root/scripts/install-deps.sh"

cmake -S "$root" -B "$build_dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo > /dev/null
cmake --build "$build_dir" --parallel "$(nproc)" --target nereon-viewer
viewer="$build_dir/examples/viewer/nereon-viewer"

# The viewer needs a display even for --help, which makes it a cheap probe.
if { [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; } \
    && timeout 20 "$viewer" --help > /dev/null 2>&1; then
    exec "$viewer" "$@"
fi

screenshot="$build_dir/nereon-viewer.png"
echo "No usable display: running under Xvfb and saving a screenshot."
runtime_dir=$(mktemp -d)
chmod 700 "$runtime_dir"
trap 'rm -rf "$runtime_dir"' EXIT
env -u DISPLAY -u WAYLAND_DISPLAY XDG_RUNTIME_DIR="$runtime_dir" DBUS_SESSION_BUS_ADDRESS=disabled: \
    QT_QPA_PLATFORM=xcb \
    xvfb-run -a -s "-screen 0 1600x1000x24" "$viewer" --screenshot "$screenshot" "$@"
echo "Screenshot: $screenshot"
