#!/usr/bin/env bash
# Prints what a user feels of Mendwise on a native Wayland desktop (headless sway), in ms:
#  - trigger → panel on screen: from `mendwise --trigger` (what the desktop's binding runs) until
#    sway has mapped the panel (polled through its IPC every few ms, so a few ms coarse);
#  - answer received → text replaced: from Mendwise's line that the answer has arrived until its
#    line that the text was written into the editor through accessibility (both stamped as
#    Mendwise writes them).
# Run inside the Wayland test session, after a build:
#   tests/wayland/wayland-session.sh bench/wayland-latency.sh build [ROUNDS]
set -uo pipefail
build=$(cd "$1" && pwd) rounds=${2:-10}
here=$(cd "$(dirname "$0")/.." && pwd)
app=$build/tests/e2e/mendwise_e2e_app
work=$(mktemp -d "${TMPDIR:-/tmp}/mendwise-bench.XXXXXX")
pids=()
trap 'kill "${pids[@]}" 2>/dev/null; wait 2>/dev/null; rm -rf "$work"' EXIT
now_ms() { echo $(($(date +%s%N) / 1000000)); }
# Read whole: with pipefail, grep -q leaving early would fail the pipe (swaymsg gets SIGPIPE).
panel_visible() { [[ $(swaymsg -t get_tree) == *'"app_id": "app.mendwise.Mendwise"'* ]]; }
wait_until() { local end=$((SECONDS + $1)); shift; until "$@"; do [ $SECONDS -ge $end ] && return 1; sleep 0.003; done; }
count() { grep -cF -- "$1" "$work/app.log"; }

wtype -s 100000000 & pids+=($!)
"$build/tests/tools/fake-messages-api" --port 47613 --echo >/dev/null 2>&1 & pids+=($!)
printf 'I has a speling eror.' >"$work/note.txt"
mousepad "$work/note.txt" >/dev/null 2>&1 & pids+=($!)
sleep 2
mkdir -p "$XDG_CONFIG_HOME/Mendwise"
printf '[General]\nanthropic_api_key=sk-ant-bench\n' >"$XDG_CONFIG_HOME/Mendwise/Mendwise.conf"
# Every line stamped with the time it was written.
"$app" 2>&1 | while IFS= read -r line; do echo "$(now_ms) $line"; done >"$work/app.log" &
pids+=($!)
wait_until 20 grep -qF 'Registered shortcut' "$work/app.log" || { echo "Mendwise did not start"; exit 1; }

panel=() replace=()
for ((i = 0; i < rounds; i++)); do
    "$here/tests/e2e/atspi-text.py" mousepad select-all
    done_before=$(count 'pasteText END')
    start=$(now_ms)
    "$app" --trigger
    wait_until 5 panel_visible || { echo "no panel in round $i"; continue; }
    panel+=($(($(now_ms) - start)))
    wtype -k Return
    wait_until 10 test "$(count 'pasteText END')" -gt "$done_before" 2>/dev/null ||
        until [ "$(count 'pasteText END')" -gt "$done_before" ]; do sleep 0.01; done
    answered=$(grep -F '✅ [API] Success' "$work/app.log" | tail -n1 | cut -d' ' -f1)
    replaced=$(grep -F 'pasteText END' "$work/app.log" | tail -n1 | cut -d' ' -f1)
    replace+=($((replaced - answered)))
    wait_until 5 sh -c '! swaymsg -t get_tree | grep -q "app.mendwise.Mendwise"'
    sleep 0.2
done
stats() { printf '%s\n' "$@" | sort -n | awk '{v[NR]=$1} END {printf "median %d, min %d, max %d (%d rounds)", v[int((NR+1)/2)], v[1], v[NR], NR}'; }
echo "Wayland (headless sway, mousepad):"
echo "  trigger → panel on screen:         $(stats "${panel[@]}") ms"
echo "  answer received → text replaced:   $(stats "${replace[@]}") ms"
