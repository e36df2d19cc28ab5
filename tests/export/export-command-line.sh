#!/usr/bin/env bash
# nereon-export from the command line: exit statuses, messages, file modes, and
# silence when not on a terminal.
# Usage: export-command-line.sh <nereon-export> <a real .aris file, may be missing>
#                               [<nereon-viewer> <headless runner> [<nereon-make-aris>]]
set -uo pipefail
program=$1
aris=$2
viewer=${3:-}
runner=${4:-}
makeAris=${5:-}
work=$(mktemp -d)
full=$work/full
trap 'mountpoint -q "$full" && umount "$full"; rm -rf "$work"' EXIT
failures=0
platform=

# expect <status> <text the messages must hold, or "" for none> <arguments...>
expect() {
    local status=$1 text=$2
    shift 2
    env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM ${platform:+QT_QPA_PLATFORM=$platform} \
        XDG_RUNTIME_DIR="$work" DBUS_SESSION_BUS_ADDRESS=disabled: "$program" "$@" > "$work/out" 2>&1
    local got=$?
    if [ "$got" != "$status" ]; then
        echo "FAIL: nereon-export $* exited $got, not $status:"; cat "$work/out"
        failures=$((failures + 1))
    elif [ -z "$text" ] && [ -s "$work/out" ]; then
        echo "FAIL: nereon-export $* printed something off a terminal:"; cat "$work/out"
        failures=$((failures + 1))
    elif [ -n "$text" ] && ! grep -q -- "$text" "$work/out"; then
        echo "FAIL: nereon-export $* did not say '$text':"; cat "$work/out"
        failures=$((failures + 1))
    fi
}

expect 0 "Usage:" --help
expect 2 "INPUT OUTPUT" only-one-argument
expect 2 "--size" a.nrec b.mp4 --size 12
expect 1 "missing.aris" "$work/missing.aris" "$work/out.mp4"
expect 1 "out.xyz" "$work/missing.aris" "$work/out.xyz"
if [ -f "$aris" ]; then
    expect 0 "" "$aris" "$work/sample.mp4" --size 320x240
    [ -s "$work/sample.mp4" ] || { echo "FAIL: no sample.mp4"; failures=$((failures + 1)); }
    expect 1 "cannot be drawn" "$aris" "$work/big.mp4" --size 100000x64
    expect 1 "cannot write" "$aris" "$work/no/folder/out.mp4"
    head -c 300000 "$aris" > "$work/cut.aris"
    expect 3 "Stopped at byte 292096 of cut.aris" "$work/cut.aris" "$work/cut.mp4" --size 320x240
    ls -A "$work" | grep -q '\.part$' && { echo "FAIL: a temporary file was left"; failures=$((failures + 1)); }

    # Without a display the tool starts its own X server, whatever platform Qt is told to use.
    for platform in "" xcb offscreen; do
        expect 0 "" "$aris" "$work/platform.png" --frame 2 --size 64x64
    done
    platform=

    # Mistakes said as they are.
    expect 0 "rounded down to 320x240" "$aris" "$work/odd.mp4" --size 321x240
    expect 1 "sample.aris lasts 0.8 s: nothing to export from 5 s" "$aris" "$work/late.mp4" --from 5
    expect 2 "--frame" "$aris" "$work/still.mp4" --frame 3
    expect 1 "sample.aris has 6 frames, not 99" "$aris" "$work/still.png" --frame 99
    if [ -n "$viewer" ]; then
        # The viewer refuses the same frame in the same words.
        "$runner" "$viewer" --frame 99 "$aris" > "$work/out" 2>&1
        status=$?
        if [ "$status" != 1 ] || ! grep -q "sample.aris has 6 frames, not 99" "$work/out"; then
            echo "FAIL: nereon-viewer --frame 99 exited $status:"; cat "$work/out"
            failures=$((failures + 1))
        fi
    fi

    # New files get the mode the umask gives, videos as pictures.
    for mask in 022 007; do
        rm -rf "$work/modes" && mkdir "$work/modes"
        (umask $mask && touch "$work/modes/plain" &&
            "$program" "$aris" "$work/modes/v.mp4" --size 64x64 > /dev/null 2>&1 &&
            "$program" "$aris" "$work/modes/p.png" --frame 1 --size 64x64 > /dev/null 2>&1)
        want=$(stat -c %a "$work/modes/plain")
        for file in v.mp4 p.png; do
            got=$(stat -c %a "$work/modes/$file" 2> /dev/null)
            [ "$got" = "$want" ] || { echo "FAIL: umask $mask: $file has mode $got, not $want"; failures=$((failures + 1)); }
        done
    done

    # A killed export's temporary file is removed by the next export into its folder; a running one's stays.
    rm -rf "$work/stale" && mkdir "$work/stale"
    true & gone=$!
    wait "$gone"
    touch "$work/stale/.old.mp4.$gone-0.part" "$work/stale/.old.mp4.$$-0.part"
    expect 0 "removed a temporary file left in $work/stale" "$aris" "$work/stale/new.mp4" --size 64x64
    [ -e "$work/stale/.old.mp4.$gone-0.part" ] && { echo "FAIL: the killed export's file stayed"; failures=$((failures + 1)); }
    [ -e "$work/stale/.old.mp4.$$-0.part" ] || { echo "FAIL: a running export's file was removed"; failures=$((failures + 1)); }

    # A full disk is said as such, with the file.
    mkdir -p "$full"
    if mount -t tmpfs -o size=256k tmpfs "$full" 2> /dev/null; then
        expect 1 "cannot write $full/many-00000.\.png: No space left on device" "$aris" "$full/many.png" --size 1200x1200
        rm -f "$full"/*
        expect 1 "No space left on device" "$aris" "$full/full.mp4" --size 1200x1200
        ls -A "$full" | grep -q . && { echo "FAIL: a full disk kept files:"; ls -A "$full"; failures=$((failures + 1)); }
        umount "$full"
    else
        echo "SKIP: no small file system to fill (mounting a tmpfs needs root)"
    fi
else
    echo "SKIP: no real ARIS recording at $aris"
fi
# The moving-target view: the bed is learnt and taken out, so the fan is mostly black.
# Counted as the pixels of the palette's blue, which the grey around the fan never is.
if [ -n "$makeAris" ] && "$program" --help | grep -q -- --moving-targets &&
    /usr/bin/python3 -c "import PyQt5.QtGui" 2> /dev/null; then
    "$makeAris" --frames 60 "$work/passage.aris" > /dev/null
    expect 0 "" "$work/passage.aris" "$work/plain.png" --frame 30 --size 320x240
    expect 0 "" "$work/passage.aris" "$work/moving.png" --frame 30 --size 320x240 --moving-targets
    read -r plain moving < <(/usr/bin/python3 - "$work/plain.png" "$work/moving.png" << 'EOF'
import sys
from PyQt5.QtGui import QImage
def blue(path):
    image = QImage(path)
    return sum(1 for y in range(image.height()) for x in range(image.width())
               if (image.pixel(x, y) & 255) > ((image.pixel(x, y) >> 16) & 255) + 40)
print(blue(sys.argv[1]), blue(sys.argv[2]))
EOF
    )
    if [ -z "$plain" ] || [ "$plain" -lt 3000 ] || [ $((moving * 10)) -gt "$plain" ]; then
        echo "FAIL: --moving-targets left ${moving:-?} lit pixels of ${plain:-?}"
        failures=$((failures + 1))
    fi
else
    echo "SKIP: no nereon-make-aris, --moving-targets or PyQt5"
fi
[ "$failures" = 0 ] && echo "export command line: all passed"
exit "$failures"
