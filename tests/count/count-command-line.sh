#!/usr/bin/env bash
# nereon-count from the command line on generated recordings: the CSV files and
# the summary, a cut recording, two jobs, the settings file, and the exit statuses.
# Usage: count-command-line.sh <nereon-count> <nereon-make-aris> [real recordings folder]
set -uo pipefail
count=$1
make_aris=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# expect <status> <text the messages must hold, or "" for none> <arguments...>
expect() {
    local status=$1 text=$2
    shift 2
    (cd "$work" && "$count" "$@") > "$work/messages" 2>&1
    local got=$?
    if [ "$got" != "$status" ]; then
        fail "nereon-count $* exited $got, not $status:"; cat "$work/messages"
    elif [ -z "$text" ] && [ -s "$work/messages" ]; then
        fail "nereon-count $* printed something off a terminal:"; cat "$work/messages"
    elif [ -n "$text" ] && ! grep -q -- "$text" "$work/messages"; then
        fail "nereon-count $* did not say '$text':"; cat "$work/messages"
    fi
}

expect 0 "Usage:" --help
expect 2 "at least one recording" --out x
expect 2 "up-is-right, up-is-left or line:DEG" a.aris --direction sideways
expect 2 "--jobs" a.aris --jobs 0
printf '[count]\nmin-lenght=0.3\n' > "$work/typo.ini"
expect 2 "unknown setting \[count\] min-lenght" a.aris --settings typo.ini

mkdir -p "$work/in"
"$make_aris" "$work/in/a.aris" --frames 300 --beams 48 --samples 1000 --seed 3 > /dev/null || fail "nereon-make-aris a.aris"
"$make_aris" "$work/in/b.aris" --frames 300 --beams 48 --samples 1000 --seed 4 > /dev/null || fail "nereon-make-aris b.aris"
# 48 beams x 1000 samples: frames of 1024 + 48000 bytes after a 1024-byte header;
# cut inside the fourth frame.
head -c $((1024 + 3 * 49024 + 500)) "$work/in/a.aris" > "$work/cut.aris"

expect 1 "Stopped at byte 148096 of cut.aris" in/a.aris in/b.aris cut.aris --out out --jobs 2
summary=$work/out/summary.csv
[ "$(head -1 "$summary")" = "file,start_time,end_time,frames,fish_up,fish_down,fish_total,damage_offset,error" ] \
    || fail "summary header: $(head -1 "$summary")"
[ "$(wc -l < "$summary")" = 4 ] || fail "summary has $(wc -l < "$summary") lines, not 4"
grep -q '^cut.aris,2026-[0-9T:.-]*Z,[0-9T:.-]*Z,3,[0-9]*,[0-9]*,[0-9]*,148096,$' "$summary" \
    || fail "cut.aris's summary row: $(grep cut.aris "$summary")"
for name in a b; do
    fish=$work/out/$name.fish.csv
    tracks=$work/out/$name.tracks.csv
    [ "$(head -1 "$fish")" = "fish_id,first_frame,last_frame,first_time,last_time,direction,length_m,range_m,bearing_deg,speed_m_s,detections" ] \
        || fail "$name fish header: $(head -1 "$fish")"
    [ "$(head -1 "$tracks")" = "fish_id,frame,time,range_m,bearing_deg,length_m,detected" ] \
        || fail "$name tracks header: $(head -1 "$tracks")"
    row=$(grep "^in/$name.aris," "$summary")
    IFS=, read -r _ _ _ frames up down total _ <<< "$row"
    [ "$frames" = 300 ] || fail "$name: $frames frames in the summary"
    [ "$total" -gt 0 ] && [ "$((up + down))" = "$total" ] || fail "$name: summary counts $up + $down = $total"
    [ "$(($(wc -l < "$fish") - 1))" = "$total" ] || fail "$name: $(wc -l < "$fish") lines in fish.csv for $total fish"
    [ "$(tail -n +2 "$fish" | cut -d, -f6 | grep -c '^up$')" = "$up" ] || fail "$name: up fish in fish.csv"
    # Every track point belongs to a counted fish, within its frames, at a UTC time.
    awk -F, 'NR == FNR { if (FNR > 1) { first[$1] = $2; last[$1] = $3 } next }
             FNR > 1 && (!($1 in first) || $2 < first[$1] || $2 > last[$1] || $3 !~ /^2026-.*Z$/) { bad = 1 }
             END { exit bad }' "$fish" "$tracks" || fail "$name: track points outside their fish"
done
ls -A "$work/out" | grep -v '\.csv$' && fail "something besides the CSV files was left in out/"

# A folder stands for the recordings in it; one job gives the same counts as two.
expect 0 "" in --out one --jobs 1
diff "$work/one/summary.csv" <(grep -v '^cut' "$summary") || fail "one job and two disagree"

# Settings from a file; the command line wins.
printf '[count]\nmin-length=50\nout=big\n' > "$work/count.ini"
expect 0 "" in/a.aris --settings count.ini
[ "$(wc -l < "$work/big/a.fish.csv")" = 1 ] || fail "min-length=50 from the settings still counted fish"
expect 0 "" in/a.aris --settings count.ini --min-length 0.25 --out small
cmp -s "$work/small/a.fish.csv" "$work/out/a.fish.csv" || fail "--min-length did not win over the settings"

expect 1 "missing.aris" missing.aris --out gone

# Real recordings, where we have them: each is counted to its end without a crash.
real=${3:-}
if [ -n "$real" ] && [ -d "$real" ]; then
    real=$(cd "$real" && pwd)
    while IFS= read -r -d '' recording; do
        name=$(basename "$recording" .aris)
        expect 0 "" "$recording" --out real
        [ -s "$work/real/$name.fish.csv" ] || fail "$recording: no fish.csv"
        grep -q "$name" "$work/real/summary.csv" || fail "$recording: not in the summary"
    done < <(find "$real" -name '*.aris' -print0)
else
    echo "count command line: no real recordings at '${real}', skipped them"
fi
[ "$failures" = 0 ] && echo "count command line: all passed"
exit "$failures"
