#!/usr/bin/env bash
# Runs one command beside KDE's own desktop portal, in a throw-away session: headless KWin
# (1440x900, which also serves kglobalaccel), xdg-desktop-portal-kde and xdg-desktop-portal on a
# private session bus, fresh XDG directories, as an unprivileged user (KWin is run as one).
# The programs listed in MENDWISE_KWIN_FAKE_INPUT (absolute paths) may type through KWin's
# fake-input protocol.
# KWin and the portals come unpacked from MENDWISE_KDE_PREFIX (default /opt/mendwise-kde, filled
# by scripts/setup.sh) rather than installed, so that they never start in other sessions.
# Usage: kde-portal-session.sh COMMAND [ARGS...]   (the command's exit status is returned;
# 77 when the prefix is missing). As root the session runs as MENDWISE_TEST_USER (default
# mendwise-test, created when missing); otherwise as the calling user.
set -euo pipefail

self=$(readlink -f "$0")
prefix=${MENDWISE_KDE_PREFIX:-/opt/mendwise-kde}
fail() {
    echo "kde-portal-session: $*" >&2
    exit 1
}

# Ends every process that carries this session's mark in its environment, whoever started it.
end_session_processes() {
    local mark=$1 round file pid found
    for round in TERM TERM TERM KILL; do
        found=0
        # One grep over every process: a process per pid takes seconds on a busy machine.
        for file in $(grep -lzxF "MENDWISE_SESSION_MARK=$mark" /proc/[0-9]*/environ 2>/dev/null); do
            pid=${file#/proc/}
            pid=${pid%/environ}
            [ "$pid" = "$$" ] && continue
            kill -s "$round" "$pid" 2>/dev/null && found=1
        done
        [ "$found" = 0 ] && return 0
        sleep 0.2
    done
}

if [ -z "${MENDWISE_SESSION_MARK:-}" ]; then
    [ $# -gt 0 ] || fail "usage: kde-portal-session.sh COMMAND [ARGS...]"
    if [ ! -x "$prefix/usr/bin/kwin_wayland" ] || [ ! -x "$prefix/usr/libexec/xdg-desktop-portal" ]; then
        echo "kde-portal-session: KWin and KDE's portal are not unpacked in $prefix" \
            "(run scripts/setup.sh)" >&2
        exit 77
    fi
    command -v dbus-run-session >/dev/null || fail "dbus-run-session is not installed"
    as_user=()
    if [ "$(id -u)" -eq 0 ]; then
        user=${MENDWISE_TEST_USER:-mendwise-test}
        if ! id "$user" >/dev/null 2>&1; then
            useradd --system --no-create-home --home-dir /nonexistent --shell /usr/sbin/nologin \
                "$user" 2>/dev/null || id "$user" >/dev/null 2>&1 || fail "cannot create user $user"
        fi
        as_user=(setpriv --reuid="$user" --regid="$user" --init-groups --)
        for path in "$self" "$@" ${MENDWISE_KWIN_FAKE_INPUT:-}; do
            [ "${path:0:1}" = / ] && [ -e "$path" ] || continue
            "${as_user[@]}" test -r "$path" ||
                fail "$user cannot read $path: make the source and build trees readable by it"
        done
    else
        user=$(id -un)
    fi
    scratch=$(mktemp -d /tmp/mendwise-kde.XXXXXX)
    mark=${scratch##*.}
    for d in config data cache state runtime; do mkdir -p "$scratch/$d"; done
    # No service directories: nothing is started by D-Bus activation, only what this script runs.
    cat >"$scratch/session.conf" <<CONF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:dir=$scratch/runtime</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
CONF
    if [ "$(id -u)" -eq 0 ]; then chown -R "$user:" "$scratch"; fi
    chmod 700 "$scratch" "$scratch/runtime"
    status=0
    (
        export MENDWISE_SESSION_MARK="$mark" MENDWISE_KDE_SCRATCH="$scratch" \
            MENDWISE_KDE_PREFIX="$prefix" HOME="$scratch" USER="$user" LOGNAME="$user" \
            TMPDIR="$scratch" XDG_CONFIG_HOME="$scratch/config" XDG_DATA_HOME="$scratch/data" \
            XDG_CACHE_HOME="$scratch/cache" XDG_STATE_HOME="$scratch/state" \
            XDG_RUNTIME_DIR="$scratch/runtime"
        exec "${as_user[@]}" dbus-run-session --config-file="$scratch/session.conf" -- "$self" "$@"
    ) || status=$?
    end_session_processes "$mark"
    [ "$status" -eq 0 ] || for log in "$scratch"/*.log; do
        echo "--- $log" >&2
        tail -n 20 "$log" >&2
    done
    rm -rf "$scratch"
    exit "$status"
fi

# Phase two, as the session's user inside its session bus.
scratch=$MENDWISE_KDE_SCRATCH
libs="$prefix/usr/lib/x86_64-linux-gnu"
unset DISPLAY WAYLAND_DISPLAY
export XDG_SESSION_TYPE=wayland XDG_CURRENT_DESKTOP=KDE XDG_DATA_DIRS="$prefix/usr/share:/usr/share"
# Only KDE's programs see the unpacked libraries and Qt 5 plugins; the command does not.
kde_env=(env "LD_LIBRARY_PATH=$libs${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
    "QT_PLUGIN_PATH=$libs/qt5/plugins:/usr/lib/x86_64-linux-gnu/qt5/plugins"
    "QML2_IMPORT_PATH=$libs/qt5/qml:/usr/lib/x86_64-linux-gnu/qt5/qml"
    "XDG_DESKTOP_PORTAL_DIR=$prefix/usr/share/xdg-desktop-portal/portals")

# KWin offers its fake-input protocol only to programs whose desktop file asks for it.
mkdir -p "$XDG_DATA_HOME/applications"
for program in ${MENDWISE_KWIN_FAKE_INPUT:-}; do
    cat >"$XDG_DATA_HOME/applications/mendwise-test-$(basename "$program").desktop" <<DESKTOP
[Desktop Entry]
Type=Application
Name=$(basename "$program")
Exec=$program
NoDisplay=true
X-KDE-Wayland-Interfaces=org_kde_kwin_fake_input
DESKTOP
done

"${kde_env[@]}" "$prefix/usr/bin/kwin_wayland" --virtual --width 1440 --height 900 \
    --no-lockscreen --socket wayland-kde >"$scratch/kwin.log" 2>&1 &
waited=0
until [ -S "$scratch/runtime/wayland-kde" ] &&
    dbus-send --session --print-reply --dest=org.kde.kglobalaccel /kglobalaccel \
        org.kde.KGlobalAccel.allComponents >/dev/null 2>&1; do
    [ $waited -lt 200 ] || fail "KWin did not start"
    sleep 0.1
    waited=$((waited + 1))
done
export WAYLAND_DISPLAY=wayland-kde
QT_QPA_PLATFORM=wayland "${kde_env[@]}" \
    "$libs/libexec/xdg-desktop-portal-kde" >"$scratch/portal-kde.log" 2>&1 &
waited=0
until dbus-send --session --print-reply --dest=org.freedesktop.impl.portal.desktop.kde \
    /org/freedesktop/portal/desktop org.freedesktop.DBus.Peer.Ping >/dev/null 2>&1; do
    [ $waited -lt 200 ] || fail "xdg-desktop-portal-kde did not start"
    sleep 0.1
    waited=$((waited + 1))
done
"${kde_env[@]}" "$prefix/usr/libexec/xdg-desktop-portal" -r >"$scratch/portal.log" 2>&1 &
waited=0
until dbus-send --session --print-reply --dest=org.freedesktop.portal.Desktop \
    /org/freedesktop/portal/desktop org.freedesktop.DBus.Properties.Get \
    string:org.freedesktop.portal.GlobalShortcuts string:version >/dev/null 2>&1; do
    [ $waited -lt 200 ] || fail "xdg-desktop-portal offers no GlobalShortcuts"
    sleep 0.1
    waited=$((waited + 1))
done

status=0
"$@" || status=$?
exit "$status"
