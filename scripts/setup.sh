#!/usr/bin/env bash
# Installs the Debian packages Mendwise needs to build, run and test, but only those that are
# missing. Works as root or through sudo. Used by start.sh, test.sh and CI alike.
# Usage: setup.sh [--test-apps]   (--test-apps: also the applications the "apps" tests drive)
# With --fuzz, also what the libFuzzer targets need (scripts/fuzz.sh; not part of CI).
set -euo pipefail

packages=(
    # build
    g++ cmake ninja-build pkg-config ccache clang-format clang-tidy
    qt6-base-dev qt6-base-private-dev qt6-svg-dev libqt6svg6 libcurl4-openssl-dev ca-certificates
    libx11-dev libxtst-dev libxcb-xkb-dev libxkbcommon-dev libxkbcommon-x11-dev
    libatspi2.0-dev libicu-dev libgtest-dev libgmock-dev libwayland-dev libwayland-bin
    # run on an X11 desktop
    dbus dbus-x11 at-spi2-core
    # the X11 and end-to-end tests: a virtual screen, a window manager, a tray, test clients
    xvfb openbox trayer xdotool xclip x11-utils x11-xkb-utils mousepad xterm stterm rxvt-unicode curl
    parcellite # a clipboard manager that refills an emptied clipboard
    openssl python3
    # the Wayland tests: a headless compositor, its keyboard and clipboard tools, Qt's Wayland
    # platform, and Python's accessibility bindings to select text without modifier keys
    sway wtype wl-clipboard qt6-wayland python3-gi gir1.2-atspi-2.0
    foot # a Wayland terminal, typed into with its own copy and paste chords
    # the Debian package and its checks
    dpkg-dev fakeroot file desktop-file-utils appstream lintian
    # the Wayland trigger: the portal's interface files, and a stand-in of the portal for tests
    xdg-desktop-portal-dev python3-dbusmock
    # typing into KWin in the test against KDE's portal (its fake-input protocol)
    plasma-wayland-protocols
)
[ "${1:-}" = --fuzz ] && packages+=(clang libclang-rt-14-dev)

# The applications people use, for the "apps" tests (label apps): GTK 4, Qt 5/KDE and
# LibreOffice (with its GTK 3 face, which carries its accessibility).
if [ "${1:-}" = "--test-apps" ]; then
    packages+=(gnome-text-editor kwrite libreoffice-writer libreoffice-gtk3 firefox-esr chromium)
fi

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
if [ "$(id -u)" -eq 0 ]; then
    as_root=()
elif command -v sudo >/dev/null; then
    as_root=(sudo)
else
    as_root=(false)
fi
export DEBIAN_FRONTEND=noninteractive

if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}"
    if [ "${as_root[*]}" = false ]; then
        echo "setup: missing packages (${missing[*]}) and neither root nor sudo to install them" >&2
        exit 1
    fi
    # Wait for another apt or dpkg run to finish rather than fail at once.
    wait_lock=(-o DPkg::Lock::Timeout=600)
    "${as_root[@]}" apt-get "${wait_lock[@]}" update -qq
    "${as_root[@]}" apt-get "${wait_lock[@]}" install -y -qq --no-install-recommends "${missing[@]}"
fi

# KWin and KDE's desktop portal, for the test of the portal trigger, are unpacked into a prefix of
# their own rather than installed: installed, their D-Bus services would start in every session
# on the machine (a GTK application in an X11 test starts the KDE portal, which never exits there).
kde_prefix=${MENDWISE_KDE_PREFIX:-/opt/mendwise-kde}
kde_packages=(kwin-wayland xdg-desktop-portal-kde xdg-desktop-portal qtwayland5)
unpack_kde() {
    echo "setup: unpacking ${kde_packages[*]} into $kde_prefix"
    [ ${#missing[@]} -gt 0 ] || "${as_root[@]}" apt-get update -qq
    # The named packages, and whatever of their dependencies is not installed.
    mapfile -t debs < <(apt-get install -s --no-install-recommends "${kde_packages[@]}" |
        awk '/^Inst /{print $2}')
    downloads=$(mktemp -d)
    chmod 755 "$downloads"
    (cd "$downloads" && "${as_root[@]}" apt-get download -qq "${kde_packages[@]}" "${debs[@]}")
    "${as_root[@]}" mkdir -p "$kde_prefix"
    for deb in "$downloads"/*.deb; do "${as_root[@]}" dpkg -x "$deb" "$kde_prefix"; done
    "${as_root[@]}" rm -rf "$downloads"
}
# Only that test needs them: without them it is skipped, the rest goes on.
if [ ! -x "$kde_prefix/usr/bin/kwin_wayland" ] && [ "${as_root[*]}" != false ]; then
    unpack_kde || echo "setup: could not unpack KDE's portal; its test will be skipped" >&2
fi
