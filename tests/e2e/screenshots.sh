#!/usr/bin/env bash
# Screenshots of the panel beside a selection in a GTK editor, one per phase, taken on a real
# X11 desktop. Runs inside tests/x11/desktop-session.sh; the build target desktop-screenshots
# runs it. Usage: screenshots.sh APP FAKE_API GRAB_SCREEN PORT OUT_DIR
set -uo pipefail
app=$1 fake=$2 grab=$3 port=$4 out=$5
work=$(mktemp -d /tmp/mendwise-shots.XXXXXX)
# shellcheck source=tests/e2e/desktop-steps.sh
source "$(dirname "$0")/desktop-steps.sh"
trap 'stop_all; rm -rf "$work"' EXIT
mkdir -p "$out"

sentence='Thier going too the park tomorow, if the whether is nice.'
start_fake --answer "They're going to the park tomorrow, if the weather is nice." --delay-ms 2500
start_editor "$sentence"
xdotool getactivewindow windowsize 960 360 windowmove 120 120
sleep 0.3
start_mendwise

# The region around the selected line and the panel below its end, fixed by the first picker.
trigger
panel_geometry
eval "$(xdotool getactivewindow getwindowgeometry --shell | sed 's/^/EDITOR_/')"
region=("$EDITOR_X" $((Y - 32)) $((X + WIDTH + 16 - EDITOR_X)) $((HEIGHT + 36)))
shoot() { # shoot NAME
    "$grab" "$out/$1.png" "${region[@]}" && echo "wrote $out/$1.png"
}

shoot desktop-picker
xdotool key Right Return
sleep 0.4
xdotool type --delay 30 "make it friendlier"
sleep 0.4
shoot desktop-instruction
xdotool key Escape
sleep 0.3
xdotool key Escape
wait_for 3 panel_hidden

# Working, then done: the answer comes after 2.5 s and the check shows for 0.4 s.
trigger
xdotool key Return
sleep 0.8
shoot desktop-working
wait_for 10 log_has '[TextSelectionService] ✅ pasteText END'
sleep 0.15 # the check replaces the spinner
shoot desktop-done
wait_for 3 panel_hidden

# Failed: the cross stays until the panel goes.
xdotool key --clearmodifiers ctrl+a
xdotool type --delay 10 "$sentence"
printf '{"type":"error","error":{"type":"overloaded_error","message":"Overloaded"}}' >"$work/error.json"
start_fake --status 529 --body-file "$work/error.json"
trigger
xdotool key Return
wait_for 10 log_has '❌ [API] Error'
sleep 0.5
shoot desktop-failed
