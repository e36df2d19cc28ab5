#!/usr/bin/env bash
# The viewer's command line: --help without a display, a recording made with
# --record replayed with --replay, and a damaged recording replayed up to the
# damage. Usage: viewer-command-line.sh <nereon-viewer>
set -u
viewer=$1
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
run() { # run <name> <viewer arguments...>: exit status in $status, stderr in $work/<name>.err
    local name=$1
    shift
    "$here/../run-headless.sh" "$viewer" "$@" >"$work/$name.out" 2>"$work/$name.err"
    status=$?
}

# No display at all: help still works, in both spellings.
for help in --help --help-all; do
    env -u DISPLAY -u WAYLAND_DISPLAY timeout 20 "$viewer" "$help" >"$work/help.out" 2>&1
    [ $? -eq 0 ] && grep -q -- "--replay" "$work/help.out" || fail "$help without a display"
done

run record --record "$work/live.nrec" --screenshot "$work/live.png" --frames 10
[ "$status" -eq 0 ] && [ -s "$work/live.png" ] || fail "recording the live frames (status $status)"
size=$(stat -c %s "$work/live.nrec" 2>/dev/null || echo 0)
[ "$size" -gt 1000 ] || fail "the recording holds no frames"

run replay --replay "$work/live.nrec" --screenshot "$work/replay.png" --frames 5 --speed 4
[ "$status" -eq 0 ] && [ -s "$work/replay.png" ] || fail "replaying the recording (status $status)"
grep -q "stopped at byte" "$work/replay.err" && fail "a whole recording reported as damaged"

# Cut short: what is there replays, the damage is reported with its offset, the exit status is 0.
head -c $((size - 100)) "$work/live.nrec" >"$work/cut.nrec"
run cut --replay "$work/cut.nrec" --screenshot "$work/cut.png" --frames 1000 --speed 16
[ "$status" -eq 0 ] && [ -s "$work/cut.png" ] || fail "replaying a truncated recording (status $status)"
grep -q "stopped at byte [0-9]" "$work/cut.err" || fail "the truncation is not reported"

# Nothing replayable: a non-zero exit status.
head -c 2000 /dev/zero >"$work/zeros.nrec"
run zeros --replay "$work/zeros.nrec" --screenshot "$work/zeros.png"
[ "$status" -ne 0 ] || fail "a file that is no recording replayed without complaint"

for f in "$work"/*.err; do
    if [ -s "$f" ] && [ "$(basename "$f")" != cut.err ] && [ "$(basename "$f")" != zeros.err ]; then
        fail "warnings from $(basename "$f" .err): $(head -3 "$f")"
    fi
done
[ "$failures" -eq 0 ] && echo "viewer command line: every check passed"
[ "$failures" -eq 0 ]
