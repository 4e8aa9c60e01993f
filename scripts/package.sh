#!/usr/bin/env bash
# Builds Mendwise for installation under /usr (Release, Debian's hardening flags) and makes the
# Debian package of it in dist/. Usage: package.sh   (prints the path of the .deb)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
dir="$root/build-package"

# The compiler and linker flags Debian builds its own packages with (hardening included).
CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
export CXXFLAGS LDFLAGS
# Not with warnings as errors: the test builds gate warnings, and at -O3 g++ 12 reports false
# "may be used uninitialized" warnings in std::optional that must not stop a release.
"$root/scripts/build.sh" "$dir" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DMENDWISE_WERROR=OFF \
    -DMENDWISE_BUILD_TESTS=OFF -DMENDWISE_BUILD_BENCH=OFF

rm -f "$dir"/mendwise_*.deb
(cd "$dir" && cpack -G DEB >cpack.log 2>&1) || { cat "$dir/cpack.log" >&2; exit 1; }
mkdir -p "$root/dist"
deb=$(ls "$dir"/mendwise_*.deb)
mv -f "$deb" "$root/dist/"
echo "$root/dist/$(basename "$deb")"
