#!/usr/bin/env bash
# Installs a build into a scratch prefix and starts every installed program from
# there, as a user who never saw the build tree would: each must find its
# libraries, answer --help, and the fake sonar must serve a recording.
# Usage: installed-programs.sh <a real .aris file, may be missing> <build-dir>...
set -uo pipefail
aris=$1
shift
work=$(mktemp -d)
sonar=
trap '[ -n "$sonar" ] && kill "$sonar" 2> /dev/null; rm -rf "$work"' EXIT
failures=0

for build_dir in "$@"; do
    [ -d "$build_dir" ] || continue
    cmake --install "$build_dir" --prefix "$work/prefix" > "$work/install.log" || { cat "$work/install.log"; exit 1; }
done
shopt -s nullglob
programs=("$work"/prefix/bin/nereon-*)
[ "${#programs[@]}" -gt 0 ] || { echo "FAIL: no program installed"; exit 1; }
# Only the installed libraries may be found: nothing from the build tree or the environment.
unset LD_LIBRARY_PATH
for program in "${programs[@]}"; do
    if ! env -u DISPLAY QT_QPA_PLATFORM=offscreen "$program" --help > "$work/out" 2>&1; then
        echo "FAIL: $(basename "$program") --help:"; cat "$work/out"
        failures=$((failures + 1))
    fi
done

fake=$(printf '%s\n' "${programs[@]}" | grep '/nereon-fake-sonar[^/]*$' | head -n 1)
if [ -n "$fake" ] && [ -f "$aris" ]; then
    port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
    "$fake" --command-port "$port" --beacon-port "$port" "$aris" > "$work/sonar" 2>&1 &
    sonar=$!
    for _ in $(seq 50); do
        grep -q "on 127.0.0.1 port $port" "$work/sonar" && break
        sleep 0.1
    done
    if ! kill -0 "$sonar" 2> /dev/null || ! grep -q "port $port" "$work/sonar"; then
        echo "FAIL: the installed fake sonar did not start:"; cat "$work/sonar"
        failures=$((failures + 1))
    fi
elif [ -z "$fake" ]; then
    echo "SKIP: no fake sonar installed (built without the live source)"
fi
[ "$failures" = 0 ] && echo "installed programs: ${#programs[@]} started from the prefix"
exit "$failures"
