#!/usr/bin/env bash
# Runs one command inside a fresh, throw-away Wayland session and cleans everything up:
#   headless sway (1440x900, no XWayland) + a session D-Bus with the accessibility bus,
#   fresh XDG directories, all as an unprivileged user (sway refuses to run as root).
# Usage: wayland-session.sh COMMAND [ARGS...]   (the command's exit status is returned)
# The command gets WAYLAND_DISPLAY and SWAYSOCK. MENDWISE_SWAY_CONFIG holds extra lines for
# the sway configuration, e.g. "bindsym Ctrl+Shift+j exec mendwise --trigger";
# MENDWISE_SESSION_SERVICES names more D-Bus services the session bus may start;
# MENDWISE_SESSION_KEYBOARD a command that holds the session's keyboard (see below). HOME, TMPDIR
# and the XDG directories are fresh and deleted afterwards; MENDWISE_SESSION_OUTPUT names a
# directory for files the caller wants back (made writable for the session's user).
# As root the session runs as MENDWISE_TEST_USER (default mendwise-test, created when missing);
# otherwise as the calling user.
set -euo pipefail

self=$(readlink -f "$0")
fail() {
    echo "wayland-session: $*" >&2
    exit 1
}

# Ends every process that carries this session's mark in its environment: whatever the session
# started, D-Bus activated or daemonized, so nothing outlives it holding the caller's pipes.
end_session_processes() {
    local mark=$1 signal pids
    for signal in TERM TERM TERM TERM KILL; do
        pids=$(grep -lzxF "MENDWISE_SESSION_MARK=$mark" /proc/[0-9]*/environ 2>/dev/null |
            cut -d/ -f3 | grep -vxF "$$" || true)
        [ -n "$pids" ] || return 0
        [ -z "${MENDWISE_SESSION_DEBUG:-}" ] || ps -o pid,comm -p "${pids//$'\n'/,}" >&2 || true
        # shellcheck disable=SC2086
        kill -s "$signal" $pids 2>/dev/null || true
        sleep 0.1
    done
}

if [ -z "${MENDWISE_SESSION_MARK:-}" ]; then
    # Phase one: choose the user, make its scratch directories, start the session bus as it.
    [ $# -gt 0 ] || fail "usage: wayland-session.sh COMMAND [ARGS...]"
    for tool in sway swaymsg wtype dbus-run-session; do
        command -v "$tool" >/dev/null || fail "$tool is not installed (run scripts/setup.sh)"
    done
    as_user=()
    uid=$(id -u)
    if [ "$uid" -eq 0 ]; then
        user=${MENDWISE_TEST_USER:-mendwise-test}
        if ! id "$user" >/dev/null 2>&1; then
            # Parallel sessions may race to create it; one wins, the others find it.
            useradd --system --no-create-home --home-dir /nonexistent --shell /usr/sbin/nologin \
                "$user" 2>/dev/null || id "$user" >/dev/null 2>&1 || fail "cannot create user $user"
        fi
        as_user=(setpriv --reuid="$user" --regid="$user" --init-groups --)
        for path in "$self" "$(type -P "$1" || true)"; do
            [ -n "$path" ] || continue
            "${as_user[@]}" test -r "$path" ||
                fail "$user cannot read $path: make the source and build trees readable by it"
        done
    else
        user=$(id -un)
    fi
    scratch=$(mktemp -d /tmp/mendwise-wayland.XXXXXX)
    mark=${scratch##*.}
    mkdir "$scratch"/{config,data,cache,state,runtime,services}
    # The session bus starts only the services linked here: the accessibility bus, dconf and
    # those the caller names. Anything else it could start (desktop portals, KDE or GNOME
    # daemons) would be a service under test or one left running after the session.
    for name in org.a11y.Bus ca.desrt.dconf ${MENDWISE_SESSION_SERVICES:-}; do
        for file in {/usr,/usr/local}/share/dbus-1/services/"$name".service; do
            if [ -e "$file" ]; then ln -sf "$file" "$scratch/services/"; fi
        done
    done
    cat >"$scratch/session.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:dir=$scratch/runtime</listen>
  <auth>EXTERNAL</auth>
  <servicedir>$scratch/services</servicedir>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
EOF
    # Files the command leaves for the caller go to MENDWISE_SESSION_OUTPUT, which outlives the
    # session and belongs to its user.
    if [ -n "${MENDWISE_SESSION_OUTPUT:-}" ]; then
        mkdir -p "$MENDWISE_SESSION_OUTPUT" || fail "cannot make $MENDWISE_SESSION_OUTPUT"
        if [ "$uid" -eq 0 ]; then chown "$user:" "$MENDWISE_SESSION_OUTPUT"; fi
    fi
    if [ "$uid" -eq 0 ]; then chown -R "$user:" "$scratch"; fi
    chmod 700 "$scratch" "$scratch/runtime"
    trap 'end_session_processes "$mark"; rm -rf "$scratch"' EXIT
    trap 'exit 130' INT TERM
    (
        export MENDWISE_SESSION_MARK="$mark" MENDWISE_WAYLAND_SCRATCH="$scratch" \
            HOME="$scratch" USER="$user" LOGNAME="$user" TMPDIR="$scratch" \
            XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" \
            XDG_CACHE_HOME="$scratch/cache" XDG_STATE_HOME="$scratch/state" \
            XDG_RUNTIME_DIR="$scratch/runtime" GSETTINGS_BACKEND=memory NO_AT_BRIDGE=0
        exec "${as_user[@]}" dbus-run-session --config-file="$scratch/session.conf" -- "$self" "$@"
    ) &
    # Waiting in the background lets a signal end the session at once, through the traps.
    status=0
    wait $! || status=$?
    exit "$status"
fi

# Phase two, as the session's user inside its session bus: the accessibility bus, then sway.
scratch=$MENDWISE_WAYLAND_SCRATCH
pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The accessibility bus is started before any application, so Qt and GTK programs join it.
dbus-send --session --print-reply --dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress \
    >/dev/null 2>&1 || echo "wayland-session: accessibility bus unavailable" >&2

cat >"$scratch/sway.conf" <<EOF
xwayland disable
output * resolution 1440x900 position 0 0
default_border none
focus_follows_mouse no
${MENDWISE_SWAY_CONFIG:-}
EOF

# Native Wayland for every toolkit, whatever the host runs; no portals (see above).
unset DISPLAY WAYLAND_DISPLAY SWAYSOCK
export XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=sway QT_QPA_PLATFORM=wayland \
    GDK_BACKEND=wayland GTK_USE_PORTAL=0 QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 \
    WLR_BACKENDS=headless WLR_LIBINPUT_NO_DEVICES=1 WLR_RENDERER=pixman
sway -c "$scratch/sway.conf" >"$scratch/sway.log" 2>&1 &
sway_pid=$!
pids+=("$sway_pid")

first_socket() { # the first of the paths that is a socket
    local path
    for path in "$@"; do
        if [ -S "$path" ]; then echo "$path" && return 0; fi
    done
    return 1
}
started=$SECONDS
until SWAYSOCK=$(first_socket "$scratch"/runtime/sway-ipc.*.sock) &&
    SWAYSOCK=$SWAYSOCK swaymsg -t get_version >/dev/null 2>&1; do
    if ! kill -0 "$sway_pid" 2>/dev/null || [ $((SECONDS - started)) -ge 20 ]; then
        echo "wayland-session: sway did not start" >&2
        cat "$scratch/sway.log" >&2
        exit 1
    fi
    sleep 0.05
done
export SWAYSOCK
display=$(first_socket "$scratch"/runtime/wayland-*) || fail "sway did not open a Wayland socket"
export WAYLAND_DISPLAY=${display##*/}
unset WLR_BACKENDS WLR_LIBINPUT_NO_DEVICES WLR_RENDERER

# A keyboard for the whole session: with no keyboard on the seat, sway gives no window the
# keyboard focus, so no toolkit reports an active window or a focused object. wtype's virtual
# keyboard stays while it sleeps (27 hours; the session ends it). MENDWISE_SESSION_KEYBOARD
# names another command that holds one (a keyboard with a chosen layout).
${MENDWISE_SESSION_KEYBOARD:-wtype -s 100000000} >/dev/null 2>&1 &
pids+=($!)
until swaymsg -t get_seats 2>/dev/null | grep -q '"type": "keyboard"'; do
    [ $((SECONDS - started)) -lt 20 ] || fail "the session keyboard did not appear"
    sleep 0.05
done

status=0
"$@" || status=$?
exit "$status"
