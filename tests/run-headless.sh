#!/usr/bin/env bash
# Runs one test binary under a private Xvfb server with a quiet, reproducible
# environment. Failed pixel checks save pictures into the working directory.
set -u
runtime_dir=$(mktemp -d)
chmod 700 "$runtime_dir"
trap 'rm -rf "$runtime_dir"' EXIT
export XDG_RUNTIME_DIR="$runtime_dir"
export DBUS_SESSION_BUS_ADDRESS=disabled:
export QT_QPA_PLATFORM=xcb
unset DISPLAY WAYLAND_DISPLAY
# NEREON_TEST_SCREEN picks another screen, as WIDTHxHEIGHTxDEPTH.
xvfb-run -a -s "-screen 0 ${NEREON_TEST_SCREEN:-1280x1024x24}" "$@"
