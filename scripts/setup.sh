#!/usr/bin/env bash
# Installs the Debian packages Mendwise needs to build, run and test, but only those that are
# missing. Works as root or through sudo. Used by start.sh, test.sh and CI alike.
# Usage: setup.sh [--test-apps]   (--test-apps: also the applications the "apps" tests drive)
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
    parcellite # a clipboard manager that refills an emptied clipboard
    openssl python3
    # the Wayland tests: a headless compositor, its keyboard and clipboard tools, Qt's Wayland
    # platform, and Python's accessibility bindings to select text without modifier keys
    sway wtype wl-clipboard qt6-wayland python3-gi gir1.2-atspi-2.0
    # the Debian package and its checks
    dpkg-dev fakeroot file desktop-file-utils appstream lintian
)

# The applications people use, for the "apps" tests (label apps): GTK 4, Qt 5/KDE and
# LibreOffice (with its GTK 3 face, which carries its accessibility).
if [ "${1:-}" = "--test-apps" ]; then
    packages+=(gnome-text-editor kwrite libreoffice-writer libreoffice-gtk3)
fi

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
# Wait for another apt or dpkg run to finish rather than fail at once.
wait_lock=(-o DPkg::Lock::Timeout=600)
"${as_root[@]}" apt-get "${wait_lock[@]}" update -qq
"${as_root[@]}" apt-get "${wait_lock[@]}" install -y -qq --no-install-recommends "${missing[@]}"
