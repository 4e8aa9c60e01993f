#!/usr/bin/env bash
# Runs one command inside a fresh, throw-away desktop session and cleans everything up:
#   Xvfb (1440x900) + a session D-Bus with the accessibility bus + the openbox window manager,
#   fresh XDG directories (so no real settings, dconf or session-restore state leaks in).
# Usage: desktop-session.sh COMMAND [ARGS...]   (the command's exit status is returned)
# MENDWISE_SCREEN overrides the screen geometry, e.g. 1280x800x24.
set -euo pipefail

# Phase one: fresh XDG directories, then a session bus that inherits them (the accessibility
# bus it starts keeps its socket under XDG_RUNTIME_DIR).
if [ -z "${MENDWISE_DESKTOP_SCRATCH:-}" ]; then
    scratch=$(mktemp -d /tmp/mendwise-desktop.XXXXXX)
    for d in config data cache state runtime; do mkdir -p "$scratch/$d"; done
    chmod 700 "$scratch/runtime"
    export MENDWISE_DESKTOP_SCRATCH="$scratch" HOME="$scratch" \
           XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" \
           XDG_CACHE_HOME="$scratch/cache" XDG_STATE_HOME="$scratch/state" \
           XDG_RUNTIME_DIR="$scratch/runtime" GSETTINGS_BACKEND=memory NO_AT_BRIDGE=0
    exec dbus-run-session -- "$0" "$@"
fi

# Phase two, inside the session bus: the X server, the accessibility bus, the window manager.
scratch=$MENDWISE_DESKTOP_SCRATCH
pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    rm -rf "$scratch"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Xvfb picks a free display itself and reports its number, so parallel sessions never collide.
Xvfb -displayfd 3 -screen 0 "${MENDWISE_SCREEN:-1440x900x24}" -nolisten tcp -noreset \
    3>"$scratch/display" >"$scratch/xvfb.log" 2>&1 &
pids+=($!)
for _ in $(seq 200); do [ -s "$scratch/display" ] && break; sleep 0.05; done
[ -s "$scratch/display" ] || { echo "desktop-session: Xvfb did not start" >&2; cat "$scratch/xvfb.log" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$scratch/display")"

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

# An X11 session, whatever the host runs.
export QT_QPA_PLATFORM=xcb QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 XDG_SESSION_TYPE=x11
unset WAYLAND_DISPLAY
status=0
"$@" || status=$?
exit "$status"
