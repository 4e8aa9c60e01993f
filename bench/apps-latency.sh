#!/usr/bin/env bash
# Prints, for each application of the "apps" tests, how long the anchor (asked when the shortcut
# fires) and the selection read (asked when an action is chosen) take through accessibility:
# the application is started after accessibility is switched on, as with Mendwise running, its
# first line selected, and x11_text_exchange_bench --active measures it.
# Run inside the X11 test session, after a build (the applications: scripts/setup.sh --test-apps):
#   tests/x11/desktop-session.sh bench/apps-latency.sh build-release [ROUNDS]
set -uo pipefail
build=$(cd "$1" && pwd) rounds=${2:-10}
bench=$build/bench/x11_text_exchange_bench
work=$(mktemp -d "${TMPDIR:-/tmp}/mendwise-apps.XXXXXX")
trap 'rm -rf "$work"' EXIT

sentence="Mendwise fixes this sentence."
printf '%s\nThe second line stays.\n' "$sentence" >"$work/document.txt"
printf '<!DOCTYPE html><title>Document</title><textarea autofocus rows=5 cols=60>%s\nThe second line stays.</textarea>' \
    "$sentence" >"$work/document.html"
page="file://$work/document.html"

# What Mendwise does at start: accessibility switched on, and the bus's address on the root
# window, where Qt 5 looks for it.
dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus \
    org.freedesktop.DBus.Properties.Set string:org.a11y.Status string:IsEnabled variant:boolean:true >/dev/null
address=$(dbus-send --session --print-reply=literal --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress)
xprop -root -f AT_SPI_BUS 8s -set AT_SPI_BUS "${address// /}"

active_pid() { xdotool getactivewindow getwindowpid 2>/dev/null; }

# NAME COMMAND...: start it, wait until its first line can be read, then measure.
measure() {
    local name=$1
    shift
    rm -rf "$work/profile" && mkdir -p "$work/profile"
    "$@" >/dev/null 2>&1 &
    local started=$! pid="" end=$((SECONDS + 60))
    until pid=$(active_pid) && [ -n "$pid" ]; do
        [ $SECONDS -ge $end ] && break
        sleep 0.2
    done
    local ready=false
    while [ -n "$pid" ] && [ $SECONDS -lt $end ]; do
        xdotool key --delay 50 ctrl+Home shift+End
        if "$bench" 1 --active "$name" 2>/dev/null | grep -qF "read \"$sentence"; then
            ready=true
            break
        fi
        sleep 0.5
    done
    if $ready; then
        "$bench" "$rounds" --active "$name" 2>/dev/null
    else
        echo "$name: its selection could not be read within 60 s"
    fi
    kill "$started" ${pid:+"$pid"} 2>/dev/null
    wait "$started" 2>/dev/null
    end=$((SECONDS + 10))
    while [ -n "$(active_pid)" ] && [ $SECONDS -lt $end ]; do sleep 0.2; done
}

measure "mousepad (GTK 3)" mousepad --disable-server "$work/document.txt"
measure "GNOME Text Editor (GTK 4)" gnome-text-editor --standalone "$work/document.txt"
measure "Qt 6 test editor" "$build/tests/x11/mendwise_qt_text_app" --select 0,0 \
    "$(cat "$work/document.txt")"
measure "KWrite (Qt 5, KDE)" kwrite "$work/document.txt"
measure "LibreOffice Writer" soffice --writer --norestore --nologo "$work/document.txt"
measure "Firefox" firefox-esr --no-remote --new-instance --profile "$work/profile" "$page"
measure "Chromium" chromium --force-renderer-accessibility --no-sandbox --no-first-run \
    --disable-gpu --user-data-dir="$work/profile" "$page"
