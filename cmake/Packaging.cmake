# The Debian package, built by CPack from the install rules (scripts/package.sh).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME mendwise)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_VENDOR "The Mendwise developers")
set(CPACK_PACKAGE_CONTACT "${MENDWISE_MAINTAINER}")
set(CPACK_PACKAGE_HOMEPAGE_URL "${MENDWISE_HOMEPAGE}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "fix or rewrite the selected text of any application")
# Debian shows the long description as it stands: lines of at most 80 characters.
set(CPACK_PACKAGE_DESCRIPTION
    "Mendwise lives in the system tray. Select text in any application and\n"
    "press one shortcut (Ctrl+Shift+J by default): a small panel opens below\n"
    "the selection, and the answer of the Anthropic Messages API, a spelling\n"
    "and grammar fix or a rewrite after an instruction of your own, replaces\n"
    "the selection. It reads the selection through the desktop's accessibility\n"
    "bus and needs an API key for the Messages API.")
string(JOIN "" CPACK_PACKAGE_DESCRIPTION ${CPACK_PACKAGE_DESCRIPTION})
set(CPACK_STRIP_FILES ON)
# The package holds the files where the build put their paths (Exec= lines): build it with
# CMAKE_INSTALL_PREFIX=/usr, as scripts/package.sh does.
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${MENDWISE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The libraries come from dpkg-shlibdeps; the accessibility bus is talked to over D-Bus.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "at-spi2-core")
# What a Wayland session needs: the clipboard, typing, and the desktop portals.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "wl-clipboard, xdg-desktop-portal")
# Plain GNOME has no system tray without it.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "gnome-shell-extension-appindicator")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
