#!/usr/bin/env bash
# Makes the README's pictures (docs/images/) with the viewer's screenshot mode
# under Xvfb. Usage: scripts/make-pictures.sh [build-dir]   (default: build/)
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=${1:-"$root/build"}
viewer="$build_dir/examples/viewer/nereon-viewer"
out="$root/docs/images"
mkdir -p "$out"

runtime_dir=$(mktemp -d)
chmod 700 "$runtime_dir"
trap 'rm -rf "$runtime_dir"' EXIT
screen=1600x1000
shoot() {
    env -u DISPLAY -u WAYLAND_DISPLAY XDG_RUNTIME_DIR="$runtime_dir" DBUS_SESSION_BUS_ADDRESS=disabled: \
        QT_QPA_PLATFORM=xcb xvfb-run -a -s "-screen 0 ${screen}x24" "$viewer" "$@"
}
# The whole window as it opens on a laptop's 1366 x 768 screen.
laptop() {
    screen=1366x768 shoot "$@"
}

laptop --screenshot "$out/viewer.png" --frames 40
names=(greyscale bronze blue green red-yellow multicolour fire aqua)
for palette in "${!names[@]}"; do
    shoot --screenshot "$out/palette-$palette-${names[$palette]}.png" --fan-only \
        --palette "$palette" --modifier 128 --size 1100x560 --frames 20
done
# The viewer replaying a recording of its own simulated sonar.
recording=$(mktemp --suffix=.nrec)
shoot --record "$recording" --screenshot "$runtime_dir/live.png" --beams 512 --frames 80
laptop --replay "$recording" --screenshot "$out/viewer-replay.png" --frames 50
rm -f "$recording"
shoot --screenshot "$out/colour-scale.png" --fan-only --colour-scale --auto-grid \
    --palette 6 --modifier 96 --clamp 0.02 --size 1100x560 --frames 20
# A generated passage of fish: its echogram, what moves in it, a fish measured on the magnifier,
# and the fish counted as they pass.
passage="$runtime_dir/passage.aris"
"$build_dir/examples/make-aris/nereon-make-aris" --frames 300 --fish 6 --beams 96 "$passage" > /dev/null
laptop "$passage" --frame 150 --echogram --screenshot "$out/viewer-echogram.png"
laptop "$passage" --frame 150 --echogram --moving-targets --screenshot "$out/viewer-moving-targets.png"
laptop "$passage" --frame 151 --magnify 8 --magnify-at 9.2m,-5deg --measure -0.0676,0.5412,-0.0265,0.5412 \
    --measurements "$runtime_dir/measurements.csv" --screenshot "$out/viewer-measurements.png"
laptop "$passage" --speed 2 --frames 200 --count-fish --echogram --screenshot "$out/viewer-count.png"
# A real ARIS recording, magnified 8 times where an echo crosses the fan, measured there.
aris="$root/../shared/real-data/aris/sample.aris"
if [ -f "$aris" ]; then
    laptop "$aris" --frame 4 --palette 0 --magnify 8 --magnify-at -0.02,0.72 \
        --measure -0.055,0.737,0.018,0.698 --screenshot "$out/viewer-aris.png"
    # The same file played by the fake sonar and shown live.
    "$build_dir/examples/fake-sonar/nereon-fake-sonar" "$aris" --command-port 56977 --beacon-port 56978 > /dev/null &
    fake=$!
    laptop --sonar 127.0.0.1:56977 --frames 10 --screenshot "$out/viewer-live.png"
    kill "$fake"
else
    echo "No $aris: the ARIS pictures are left as they were" >&2
fi
echo "Pictures in $out"
