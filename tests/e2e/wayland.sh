#!/usr/bin/env bash
# The whole road on a native Wayland desktop (headless sway, no XWayland): the real program
# (built against a fake Messages API on loopback), a GTK 3 editor and a Qt 6 editor holding a
# sentence with typos. The trigger is sway's own binding of `mendwise --trigger`, fired with
# wtype; the selection is read and replaced through the accessibility bus, and where an
# application shares no text, through keystrokes Mendwise types with its virtual keyboard.
# Runs inside tests/wayland/wayland-session.sh. Usage: wayland.sh APP FAKE_API QT_APP PORT KEYS
# (KEYS: tests/wayland/type-keys, which types chords such as ctrl+a).
set -uo pipefail
app=$1 fake=$2 qtapp=$3 port=$4 keys=$5
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/mendwise-e2e.XXXXXX")
# shellcheck source=tests/e2e/desktop-steps.sh
source "$here/desktop-steps.sh"
trap clean_up EXIT

document() { "$here/atspi-text.py" "$1" text; }
# Only mapped windows are in sway's tree: Mendwise shows no window but the panel here.
# Read whole: with pipefail, grep -q leaving early would fail the pipe (swaymsg gets SIGPIPE).
panel_visible() { [[ $(swaymsg -t get_tree) == *'"app_id": "app.mendwise.Mendwise"'* ]]; }
panel_hidden() { ! panel_visible; }
focused_app() { swaymsg -t get_tree | /usr/bin/python3 -c '
import json, sys
def walk(n):
    if n.get("focused"): print(n.get("app_id")); return True
    return any(walk(c) for c in n.get("nodes", []) + n.get("floating_nodes", []))
walk(json.load(sys.stdin))'; }
focused_is() { test "$(focused_app)" = "$1"; }
more_pickers_than() { test "$(log_count '[AppDelegate] 🚀 showPicker')" -gt "$1"; }
trigger() { # presses the desktop's binding of `mendwise --trigger`; waits for the picker
    local before
    before=$(log_count '[AppDelegate] 🚀 showPicker')
    wtype -M ctrl -M shift j -m shift -m ctrl
    wait_for 5 more_pickers_than "$before"
    wait_for 5 panel_visible
}

swaymsg "bindsym Ctrl+Shift+j exec $app --trigger" >/dev/null
start_fake --answer "I have a spelling error."
printf '%s' 'I has a speling eror.' >"$work/note.txt"
mousepad "$work/note.txt" >"$work/mousepad.log" 2>&1 &
editor=$!
pids+=("$editor")
wait_for 20 focused_is mousepad || { echo "mousepad did not come up"; exit 1; }
# Keystrokes with modifiers cannot select here (headless sway's virtual keyboards carry no
# modifier state to clients); the accessibility bus can.
wait_for 10 "$here/atspi-text.py" mousepad select-all || { echo "cannot select in mousepad"; exit 1; }
start_mendwise

# 1. GTK 3: the selection is read and replaced through accessibility.
check "no panel before the trigger" panel_hidden
trigger
check "the trigger shows the picker for the editor" log_has '[AppDelegate] 🚀 showPicker — Mousepad'
check "the panel is on screen and has the keyboard" focused_is app.mendwise.Mendwise
wtype -k Return
wait_for 10 log_has '[TextSelectionService] ✅ pasteText END'
check "the selection was read through accessibility" log_has '[TextSelectionService] ✅ AX SUCCESS — 21 chars: "I has a speling eror."'
check "the request carried the selection" grep -qF 'I has a speling eror.' "$work/requests.jsonl"
check "the answer went in through accessibility" log_has '🛣 Paste road: accessibility'
wait_for 10 panel_hidden
check "the panel is gone after the success" panel_hidden
wait_for 5 focused_is mousepad
check "the editor has the keyboard again" focused_is mousepad
check "the editor holds the answer" test "$(document mousepad)" = "I have a spelling error."

# 2. A server error: nothing replaced, the editor unchanged.
printf '{"type":"error","error":{"type":"overloaded_error","message":"Overloaded"}}' >"$work/error.json"
start_fake --status 529 --body-file "$work/error.json"
"$here/atspi-text.py" mousepad select-all
trigger
wtype -k Return
wait_for 10 log_has '❌ [API] Error: {"type":"error"'
wait_for 10 panel_hidden
check "a server error leaves the editor unchanged" test "$(document mousepad)" = "I have a spelling error."
check "a server error hides the panel" panel_hidden

# 3. Qt 6: the same road.
start_fake --answer "Corrected."
"$qtapp" --select 0,10 "Corectted. More text" >"$work/qt.log" 2>&1 &
pids+=($!)
wait_for 20 grep -qx ready "$work/qt.log" || { echo "the Qt editor did not come up"; exit 1; }
trigger
check "the trigger shows the picker for the Qt editor" log_has '[AppDelegate] 🚀 showPicker — mendwise_qt_text_app'
wtype -k Return
wait_for 10 grep -qx 'text:Corrected.%20More%20text' "$work/qt.log"
check "the Qt editor holds the answer" grep -qx 'text:Corrected.%20More%20text' "$work/qt.log"
check "the request carried the Qt selection" grep -qF '"content\":\"Corectted.\"' "$work/requests.jsonl"

# 4. A GTK editor without its accessibility bridge: Mendwise types Ctrl+C and Ctrl+V, as the
#    keys of a Latin layout although the session's keyboard types Russian first.
pastes_more_than() { test "$(log_count '[TextSelectionService] ✅ pasteText END')" -gt "$1"; }
# One instance serves every window: the next must start afresh, once the old one is gone, and
# without the session bus, where a dying instance could still hold the name and take the file.
kill "$editor"
wait_for 10 eval '! kill -0 "$editor"' || { echo "mousepad did not quit"; exit 1; }
start_fake --answer "I have a spelling error."
printf '%s' 'I has a speling eror.' >"$work/plain.txt"
NO_AT_BRIDGE=1 mousepad --disable-server "$work/plain.txt" >"$work/mousepad-plain.log" 2>&1 &
pids+=($!)
wait_for 20 focused_is mousepad || { echo "mousepad without accessibility did not come up"; exit 1; }
"$keys" ctrl+a
# A clipboard manager that refills an emptied clipboard with its last entry, as Klipper does by
# default: that entry ("Corrected.") must not pass for the editor's copy, nor replace it.
(last=$(wl-paste -n); while :; do
    if now=$(wl-paste -n 2>/dev/null); then last=$now; else printf %s "$last" | wl-copy; fi
    sleep 0.02
done) &
refiller=$!
pids+=("$refiller")
pastes=$(log_count '[TextSelectionService] ✅ pasteText END')
trigger
wtype -k Return
wait_for 10 pastes_more_than "$pastes"
kill "$refiller"
check "a keystroke copied the selection" log_has '✅ copySelectedText SUCCESS — 21 chars'
check "a keystroke pasted the answer" log_has '🛣 Paste road: keystroke'
wait_for 10 panel_hidden
wait_for 5 focused_is mousepad
"$keys" ctrl+s
wait_for 5 grep -qx 'I have a spelling error.' "$work/plain.txt"
check "the editor without accessibility holds the answer" grep -qx 'I have a spelling error.' "$work/plain.txt"

# 5. A terminal takes its own chords: Ctrl+Shift+C and Ctrl+Shift+V (a bare Ctrl+C would end
#    the program in it).
start_fake --answer "The cat sat."
foot sh -c 'printf "Teh cat sat.\n"; exec cat >"$0"' "$work/foot.txt" >"$work/foot.log" 2>&1 &
pids+=($!)
wait_for 20 focused_is foot || { echo "foot did not come up"; exit 1; }
# foot's search selects what it finds, as a drag of the pointer would.
"$keys" ctrl+shift+r shift+t e h space c a t space s a t period Return
pastes=$(log_count '[TextSelectionService] ✅ pasteText END')
trigger
wtype -k Return
wait_for 10 pastes_more_than "$pastes"
check "the terminal's selection was copied" log_has '✅ copySelectedText SUCCESS — 12 chars'
wait_for 10 panel_hidden
wait_for 5 focused_is foot
"$keys" Return ctrl+d
wait_for 5 grep -qx 'The cat sat.' "$work/foot.txt"
check "the terminal received the answer" grep -qx 'The cat sat.' "$work/foot.txt"

kill -TERM "$app_pid"
wait_for 10 sh -c "! kill -0 $app_pid 2>/dev/null"
check "Mendwise quits on SIGTERM" sh -c "! kill -0 $app_pid 2>/dev/null"
summary
