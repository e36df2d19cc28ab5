#!/usr/bin/env bash
# The viewer shows a live sonar: the fake one playing the real ARIS recording.
# Usage: viewer-live.sh <nereon-viewer> <nereon-fake-sonar> <sample.aris> <headless runner>
set -uo pipefail
viewer=$1
fake=$2
aris=$3
runner=$4
if [ ! -f "$aris" ]; then
    echo "SKIP: no real ARIS recording at $aris"
    exit 0
fi
work=$(mktemp -d)
port=$((20000 + $$ % 20000))
"$fake" "$aris" --command-port "$port" --beacon-port $((port + 1)) > "$work/fake.log" 2>&1 &
sonar=$!
trap 'kill $sonar 2> /dev/null; rm -rf "$work"' EXIT
sleep 0.5
"$runner" "$viewer" --sonar "127.0.0.1:$port" --frames 5 --size 800x500 --record "$work/live.nrec" \
    --screenshot "$work/live.png" > "$work/viewer.log" 2>&1
status=$?
cat "$work/viewer.log"
if [ "$status" != 0 ] || [ ! -s "$work/live.png" ] || ! grep -q "Receiving from 127.0.0.1" "$work/viewer.log"; then
    echo "FAIL: the viewer did not show the fake sonar live (status $status)"
    cat "$work/fake.log"
    exit 1
fi
# The live session was recorded, and the recording replays.
"$runner" "$viewer" "$work/live.nrec" --frames 3 --size 800x500 --screenshot "$work/replay.png" > /dev/null 2>&1 \
    || { echo "FAIL: the recorded live session does not replay"; exit 1; }
echo "viewer live: passed"
