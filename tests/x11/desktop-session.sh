#!/usr/bin/env bash
# Runs one command inside a fresh, throw-away desktop session and cleans everything up:
#   Xvfb (1440x900) + a session D-Bus with the accessibility bus + the openbox window manager,
#   fresh XDG directories (so no real settings, dconf or session-restore state leaks in).
# Usage: desktop-session.sh COMMAND [ARGS...]   (the command's exit status is returned)
# MENDWISE_SCREEN overrides the screen geometry, e.g. 1280x800x24.
set -euo pipefail

if [ -z "${MENDWISE_DESKTOP_SESSION_DBUS:-}" ]; then
    export MENDWISE_DESKTOP_SESSION_DBUS=1
    exec dbus-run-session -- "$0" "$@"
fi

pids=()
scratch=$(mktemp -d /tmp/mendwise-desktop.XXXXXX)
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Fresh XDG directories for this session.
for d in config data cache state runtime; do mkdir -p "$scratch/$d"; done
chmod 700 "$scratch/runtime"
export HOME="$scratch" XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" \
       XDG_CACHE_HOME="$scratch/cache" XDG_STATE_HOME="$scratch/state" \
       XDG_RUNTIME_DIR="$scratch/runtime"
export GSETTINGS_BACKEND=memory NO_AT_BRIDGE=0

# A free display number: the lowest without a lock file from 90 up.
display=90
while [ -e "/tmp/.X${display}-lock" ] || [ -e "/tmp/.X11-unix/X${display}" ]; do
    display=$((display + 1))
done
Xvfb ":$display" -screen 0 "${MENDWISE_SCREEN:-1440x900x24}" -nolisten tcp -noreset \
    >"$scratch/xvfb.log" 2>&1 &
pids+=($!)
export DISPLAY=":$display"

wait_for() { # wait_for SECONDS COMMAND...: poll until the command succeeds
    local deadline=$((SECONDS + $1)); shift
    until "$@" >/dev/null 2>&1; do
        if [ "$SECONDS" -ge "$deadline" ]; then return 1; fi
        sleep 0.05
    done
}
wait_for 20 xdpyinfo || { echo "desktop-session: Xvfb did not start" >&2; cat "$scratch/xvfb.log" >&2; exit 1; }

# The accessibility bus is started before any application, so Qt and GTK programs join it.
dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress \
    >/dev/null 2>&1 || echo "desktop-session: accessibility bus unavailable" >&2

openbox --sm-disable >"$scratch/openbox.log" 2>&1 &
pids+=($!)
wait_for 20 sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"' ||
    { echo "desktop-session: openbox did not start" >&2; exit 1; }

export QT_QPA_PLATFORM=xcb QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
status=0
"$@" || status=$?
exit "$status"
