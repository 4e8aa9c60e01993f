#!/usr/bin/env bash
# The tray side of the real program on a real desktop with a tray (trayer): the icon, the
# popover it toggles, the settings window opened from there, and quitting.
# Runs inside tests/x11/desktop-session.sh. Usage: tray.sh APP FAKE_API PORT
set -uo pipefail
app=$1 fake=$2 port=$3
work=$(mktemp -d /tmp/mendwise-tray.XXXXXX)
# shellcheck source=tests/e2e/desktop-steps.sh
source "$(dirname "$0")/desktop-steps.sh"
trap clean_up EXIT

# The visible window of Mendwise of this size, if any (the icon, the popover, the settings).
window_sized() { # window_sized WIDTH HEIGHT
    local w
    for w in $(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null); do
        eval "$(xdotool getwindowgeometry --shell "$w")"
        if [ "$WIDTH" = "$1" ] && [ "$HEIGHT" = "$2" ]; then echo "$w"; return 0; fi
    done
    return 1
}
popover_open() { window_sized 280 200 >/dev/null; }
popover_closed() { ! popover_open; }
settings_open() { window_sized 450 340 >/dev/null; }
settings_closed() { ! settings_open; }
click() { xdotool mousemove "$1" "$2" click 1; sleep 0.5; }
click_icon() { click $((icon_x + icon_w / 2)) $((icon_y + icon_h / 2)); }
click_in_popover() { # click_in_popover X Y: relative to the popover's top-left corner
    eval "$(xdotool getwindowgeometry --shell "$(window_sized 280 200)")"
    click $((X + $1)) $((Y + $2))
}

trayer --edge top --align right --widthtype pixel --width 200 --height 24 --transparent false \
    >"$work/trayer.log" 2>&1 &
pids+=($!)
wait_for 10 sh -c 'xdotool search --class trayer' || { echo "trayer did not start"; exit 1; }
start_mendwise

# The icon is the only window Mendwise shows at first.
wait_for 10 xdotool search --onlyvisible --pid "$app_pid"
icon=$(xdotool search --onlyvisible --pid "$app_pid" 2>/dev/null | head -n1)
eval "$(xdotool getwindowgeometry --shell "$icon")"
icon_x=$X icon_y=$Y icon_w=$WIDTH icon_h=$HEIGHT
check "the icon sits in the tray at the top of the screen" test "$icon_y" -lt 24 -a "$icon_w" -le 24
check "no word of a missing tray" sh -c "! grep -q 'No system tray' '$work/app.log'"

click_icon
check "a click on the icon opens the popover" popover_open
eval "$(xdotool getwindowgeometry --shell "$(window_sized 280 200)")"
check "the popover hangs below the icon" test "$Y" -ge $((icon_y + icon_h - 1))
click_icon
check "a second click on the icon closes it" popover_closed
click_icon
click 200 600
check "a click elsewhere closes it" popover_closed

click_icon
click_in_popover 74 137 # Settings…
check "Settings… opens the settings window" settings_open
check "opening the settings closes the popover" popover_closed
settings=$(window_sized 450 340)
check "the settings window is titled Mendwise" test "$(xdotool getwindowname "$settings")" = Mendwise
eval "$(xdotool getwindowgeometry --shell "$settings")"
# (Centred before the window manager adds its title bar, so a little low.)
check "the settings window opens in the middle of the screen" \
    test $(((X + 225 - 720) ** 2 + (Y + 170 - 450) ** 2)) -lt $((48 ** 2))
# Moved by the user, closed, opened again: the same window, where the user left it.
xdotool windowmove --sync "$settings" 100 150
sleep 0.3
eval "$(xdotool getwindowgeometry --shell "$settings")"
moved_x=$X moved_y=$Y
# The window manager's Alt+F4 closes the window with the keyboard: wait until it has it.
xdotool windowactivate --sync "$settings"
wait_for 5 eval 'test "$(xdotool getwindowfocus)" = "$settings"'
xdotool key alt+F4
wait_for 5 settings_closed
check "Alt+F4 closes the settings window" settings_closed
sleep 0.5
check "closing the settings window leaves Mendwise running" kill -0 "$app_pid"
click_icon
click_in_popover 74 137
check "Settings… shows the window again" settings_open
eval "$(xdotool getwindowgeometry --shell "$(window_sized 450 340)")"
check "it comes back where the user left it" test "$X,$Y" = "$moved_x,$moved_y"

click_icon
click_in_popover 90 175 # Quit Mendwise
wait_for 10 sh -c "! kill -0 $app_pid 2>/dev/null"
check "Quit Mendwise ends the program" sh -c "! kill -0 $app_pid 2>/dev/null"

summary
