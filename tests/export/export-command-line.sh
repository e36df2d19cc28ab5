#!/usr/bin/env bash
# nereon-export from the command line: exit statuses, messages, and silence when
# not on a terminal. Usage: export-command-line.sh <nereon-export> <a real .aris file, may be missing>
set -uo pipefail
program=$1
aris=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# expect <status> <text the messages must hold, or "" for none> <arguments...>
expect() {
    local status=$1 text=$2
    shift 2
    env -u DISPLAY XDG_RUNTIME_DIR="$work" DBUS_SESSION_BUS_ADDRESS=disabled: "$program" "$@" > "$work/out" 2>&1
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
else
    echo "SKIP: no real ARIS recording at $aris"
fi
[ "$failures" = 0 ] && echo "export command line: all passed"
exit "$failures"
