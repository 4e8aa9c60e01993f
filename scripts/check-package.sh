#!/usr/bin/env bash
# Checks the Debian package of Mendwise: desktop-file-validate, appstreamcli and lintian on it;
# then an install, the installed program's --version without a display, a start on a throw-away
# X11 desktop (the way the applications menu starts it: the desktop file's Exec line) and a quit
# on SIGTERM; then the uninstall.
# Usage: check-package.sh [DEB]   (default: the newest dist/mendwise_*.deb from package.sh)
# As root the package is installed with apt and removed again; otherwise, or when Mendwise is
# already installed here, it is unpacked into a scratch root and run from there.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
id=app.mendwise.Mendwise
deb=${1:-$(ls -t "$root"/dist/mendwise_*.deb 2>/dev/null | head -n1)}
if [ -z "$deb" ] || [ ! -f "$deb" ]; then
    echo "check-package: no package found; run scripts/package.sh first" >&2
    exit 1
fi
deb=$(realpath "$deb")
version=$(dpkg-deb -f "$deb" Version)
work=$(mktemp -d /tmp/mendwise-package.XXXXXX)
installed=false
apt=(apt-get -o DPkg::Lock::Timeout=600 -y -qq)
clean_up() {
    if $installed; then
        DEBIAN_FRONTEND=noninteractive "${apt[@]}" remove --purge mendwise >/dev/null 2>&1
    fi
    rm -rf "$work"
}
trap clean_up EXIT

failures=0
# check DESCRIPTION COMMAND...: runs the command, shows its output only on failure.
check() {
    local what=$1
    shift
    if "$@" >"$work/out" 2>&1; then
        echo "ok    $what"
    else
        echo "FAIL  $what"
        sed 's/^/      /' "$work/out"
        failures=$((failures + 1))
    fi
}

echo "== $(basename "$deb") ($(du -k "$deb" | cut -f1) KiB)"
dpkg-deb -x "$deb" "$work/unpacked" || exit 1
share=$work/unpacked/usr/share
expected=(usr/bin/mendwise usr/bin/mendwise-rewrite "usr/share/applications/$id.desktop"
    "usr/share/metainfo/$id.metainfo.xml" "usr/share/dbus-1/services/$id.service"
    "usr/share/icons/hicolor/scalable/apps/$id.svg" usr/share/doc/mendwise/copyright
    usr/share/doc/mendwise/changelog.gz usr/share/man/man1/mendwise.1.gz)
for size in 16 22 24 32 48 64 128 256; do
    expected+=("usr/share/icons/hicolor/${size}x${size}/apps/$id.png")
done
every_file_in_place() {
    local f status=0
    for f in "${expected[@]}"; do
        [ -s "$work/unpacked/$f" ] || { echo "missing: /$f"; status=1; }
    done
    return "$status"
}
check "every file in its place" every_file_in_place
check "desktop-file-validate" desktop-file-validate "$share/applications/$id.desktop"
check "appstreamcli validate --no-net" appstreamcli validate --no-net \
    "$share/metainfo/$id.metainfo.xml"
check "lintian: no errors" lintian --fail-on error "$deb"
grep -E '^W: ' "$work/out" | sed 's/^/      /' # the warnings, for the record

# Install.
prefix=$work/unpacked
if [ "$(id -u)" -ne 0 ]; then
    echo "      (not root: running from the unpacked package)"
elif dpkg-query -W -f='${Status}' mendwise 2>/dev/null | grep -q "install ok installed"; then
    echo "      (Mendwise is installed here already: running from the unpacked package)"
else
    check "installs with apt" env DEBIAN_FRONTEND=noninteractive "${apt[@]}" install \
        --no-install-recommends "$deb"
    installed=true
    prefix=""
fi

# The program the applications menu starts, and the D-Bus service file starts too.
exec_line=$(sed -n 's/^Exec=//p' "$prefix/usr/share/applications/$id.desktop")
program=$prefix$exec_line
check "the menu entry starts /usr/bin/mendwise" test "$exec_line" = /usr/bin/mendwise -a -x "$program"
check "the D-Bus service starts the same program" \
    grep -qx "Exec=$exec_line" "$prefix/usr/share/dbus-1/services/$id.service"
version_is() { # version_is EXPECTED PROGRAM: its --version without any display
    local got
    got=$(env -u DISPLAY -u WAYLAND_DISPLAY "$2" --version) || return 1
    [ "$got" = "$1" ] || { echo "printed \"$got\", expected \"$1\""; return 1; }
}
check "mendwise --version without a display" version_is "Mendwise $version" "$program"
check "mendwise-rewrite --version" version_is "mendwise-rewrite $version" \
    "$prefix/usr/bin/mendwise-rewrite"

# A start on a throw-away desktop: up (its first trace line, a window: without a tray and an API
# key, the settings), known to the session bus as activatable, and gone after SIGTERM.
cat >"$work/session.sh" <<'SESSION'
#!/usr/bin/env bash
program=$1 log=$2 id=$3
"$program" >"$log" 2>&1 &
pid=$!
up() { grep -q '^\[AppDelegate\]' "$log" && xdotool search --onlyvisible --pid "$pid" >/dev/null; }
for _ in $(seq 150); do up && break; kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
if ! up; then
    echo "Mendwise did not come up (within 15 s); its output:"; cat "$log"; kill -KILL "$pid"; exit 1
fi
if ! dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.ListActivatableNames | grep -q "\"$id\""; then
    echo "the session bus does not know $id as activatable"; kill -KILL "$pid"; exit 1
fi
kill -TERM "$pid"
for _ in $(seq 100); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
if kill -0 "$pid" 2>/dev/null; then
    echo "still running 10 s after SIGTERM"; kill -KILL "$pid"; exit 1
fi
wait "$pid"
status=$?
[ "$status" -eq 0 ] || { echo "exit status $status after SIGTERM; its output:"; cat "$log"; exit 1; }
SESSION
chmod +x "$work/session.sh"
data_dirs=${XDG_DATA_DIRS:-/usr/local/share:/usr/share}
[ -n "$prefix" ] && data_dirs=$prefix/usr/share:$data_dirs
check "starts on an X11 desktop and quits on SIGTERM" env XDG_DATA_DIRS="$data_dirs" \
    "$root/tests/x11/desktop-session.sh" "$work/session.sh" "$program" "$work/app.log" "$id"

if $installed; then
    removed() { [ ! -e /usr/bin/mendwise ] && [ ! -e "/usr/share/applications/$id.desktop" ]; }
    check "uninstalls" env DEBIAN_FRONTEND=noninteractive "${apt[@]}" remove --purge mendwise
    installed=false
    check "nothing left after the uninstall" removed
fi

if [ "$failures" -ne 0 ]; then
    echo "check-package: $failures check(s) failed" >&2
    exit 1
fi
echo "check-package: all checks passed (${SECONDS} s)"
