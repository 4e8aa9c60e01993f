#!/usr/bin/env bash
# The whole road on a real desktop: the real program (built against a fake Messages API on
# loopback), a GTK editor holding a sentence with typos, keys typed with xdotool.
# Runs inside tests/x11/desktop-session.sh. Usage: end-to-end.sh APP FAKE_API PORT
set -uo pipefail
app=$1 fake=$2 port=$3
work=$(mktemp -d /tmp/mendwise-e2e.XXXXXX)
# shellcheck source=tests/e2e/desktop-steps.sh
source "$(dirname "$0")/desktop-steps.sh"
trap clean_up EXIT

editor_text() { xdotool key --clearmodifiers ctrl+a ctrl+c; sleep 0.3; xclip -o -selection clipboard; }
request_field() { # request_field N FIELD: the FIELD of the Nth request body (1-based)
    sed -n "${1}p" "$work/requests.jsonl" |
        /usr/bin/python3 -c 'import json,sys; print(json.loads(json.loads(sys.stdin.read())["body"])[sys.argv[1]])' "$2"
}

# 0. A first start with neither a tray nor an API key opens the settings window, the only
#    place to enter the key on such a desktop.
"$app" >"$work/first-start.log" 2>&1 &
first_pid=$!
pids+=("$first_pid")
check "a first start without a tray opens the settings window" \
    wait_for 10 sh -c "xdotool search --onlyvisible --pid $first_pid --name '^Mendwise$'"
check "it says there is no tray, and how to reach the settings" \
    grep -qF 'No system tray on this desktop' "$work/first-start.log"
kill "$first_pid"
wait "$first_pid" 2>/dev/null

start_fake --answer "I have a spelling error."
start_editor 'I has a speling eror.'
start_mendwise

# 1. Fix: the selection is replaced by the answer; the request carried the stored prompt.
check "no panel before the trigger" panel_hidden
trigger
check "the trigger shows the picker for the editor" log_has '[AppDelegate] 🚀 showPicker — Mousepad'
check "the panel is on screen" panel_visible
check "the editor stays the active window" sh -c 'xdotool getactivewindow getwindowname | grep -q note'
xdotool key Return
wait_for 10 log_has '[TextSelectionService] ✅ pasteText END'
sleep 0.3
check "the request carried the stored system prompt" test "$(request_field 1 system)" = \
    "Fix English spelling and grammar in this message. Return ONLY the corrected text. No explanations, no alternatives, no extra text. Just the fixed message."
check "the request carried the selection" test "$(request_field 1 messages | grep -c 'I has a speling eror.')" = 1
sleep 0.8 # success for 0.4 s, then the fade
check "the panel is gone after the success" panel_hidden
check "the editor holds the answer" test "$(editor_text)" = "I have a spelling error."

# 2. A trigger while the panel is open puts a fresh picker below the new selection. The panel
#    holds the keyboard, so the new selection is made with the mouse: a double click on "have".
trigger
panel_geometry; first_x=$X first_y=$Y
eval "$(xdotool getactivewindow getwindowgeometry --shell)"
xdotool mousemove $((X + 25)) $((first_y - 16)) click --repeat 2 1
sleep 0.3
shown=$(log_count '[AppDelegate] 🚀 showPicker')
xdotool key --clearmodifiers ctrl+shift+j
wait_for 5 test "$(log_count '[AppDelegate] 🚀 showPicker')" -gt "$shown"
sleep 0.4
check "a trigger while the panel is open shows a fresh picker" test "$(log_count '[AppDelegate] 🚀 showPicker')" -gt "$shown"
panel_geometry
check "the fresh picker stands below the new selection" test "$X" -lt $((first_x - 80)) -a "$Y" = "$first_y" ||
    echo "  the panel moved from $first_x,$first_y to $X,$Y"
xdotool key Escape
sleep 0.5
check "Escape closes the re-placed panel" panel_hidden

# 3. Custom instruction: Right, Return, type, Return sends the typed instruction.
start_fake --echo
trigger
xdotool key Right Return
sleep 0.3
xdotool type --delay 20 "make it formal"
xdotool key Return
wait_for 10 test "$(wc -l <"$work/requests.jsonl")" -ge 2
check "the custom request carried the typed instruction" test "$(request_field 2 system)" = "make it formal"
wait_for 10 test "$(log_count '[TextSelectionService] ✅ pasteText END')" -ge 2
sleep 1

# 4. A server error: red badge, nothing pasted, the editor unchanged.
printf '{"type":"error","error":{"type":"overloaded_error","message":"Overloaded"}}' >"$work/error.json"
start_fake --status 529 --body-file "$work/error.json"
before_text=$(editor_text)
pastes=$(log_count '[TextSelectionService] 📤 pasteText BEGIN')
trigger
xdotool key Return
wait_for 10 log_has '❌ [API] Error: {"type":"error"'
sleep 1.5
check "a server error pastes nothing" test "$(log_count '[TextSelectionService] 📤 pasteText BEGIN')" = "$pastes"
check "a server error leaves the editor unchanged" test "$(editor_text)" = "$before_text"

# 5. An empty selection fails with the capture error, without any request.
requests_before=$(wc -l <"$work/requests.jsonl")
xdotool key --clearmodifiers ctrl+End
sleep 0.2
xdotool key --clearmodifiers ctrl+shift+j
sleep 0.5
xdotool key Return
wait_for 10 log_has '[TextSelectionService] ❌ copySelectedText FAILED — throwing noTextSelected'
check "an empty selection fails with the capture error" log_has '[TextSelectionService] ❌ copySelectedText FAILED — throwing noTextSelected'
check "an empty selection sends no request" test "$(wc -l <"$work/requests.jsonl")" = "$requests_before"

# Quitting releases the shortcut and ends the process.
kill -TERM "$app_pid"
wait_for 10 sh -c "! kill -0 $app_pid 2>/dev/null"
check "Mendwise quits on SIGTERM" sh -c "! kill -0 $app_pid 2>/dev/null"

summary
