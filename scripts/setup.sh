#!/usr/bin/env bash
# Installs the Debian packages Mendwise needs to build, run and test, but only those that are
# missing. Works as root or through sudo. Used by start.sh, test.sh and CI alike.
# With --fuzz, also what the libFuzzer targets need (scripts/fuzz.sh; not part of CI).
set -euo pipefail

packages=(
    # build
    g++ cmake ninja-build pkg-config ccache clang-format clang-tidy
    qt6-base-dev qt6-svg-dev libqt6svg6 libcurl4-openssl-dev ca-certificates
    libx11-dev libxtst-dev libxcb-xkb-dev libxkbcommon-dev libxkbcommon-x11-dev
    libatspi2.0-dev libicu-dev libgtest-dev libgmock-dev
    # run on an X11 desktop
    dbus dbus-x11 at-spi2-core
    # the X11 and end-to-end tests: a virtual screen, a window manager, a tray, test clients
    xvfb openbox trayer xdotool xclip x11-utils x11-xkb-utils mousepad xterm stterm rxvt-unicode curl
    openssl python3
)
[ "${1:-}" = --fuzz ] && packages+=(clang libclang-rt-14-dev)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null; then
    as_root=(sudo)
else
    echo "setup: missing packages (${missing[*]}) and neither root nor sudo to install them" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
