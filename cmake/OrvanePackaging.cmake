# SPDX-License-Identifier: GPL-3.0-or-later
# The Debian package, built by `cpack` in a build directory (scripts/package.sh does it all). It holds what
# `cmake --install` puts under /usr: the program and the desktop integration files from data/.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orvane)
set(CPACK_PACKAGE_VENDOR "Velmont")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# The package carries a release build without its symbols; nothing in it is meant for debugging.
set(CPACK_STRIP_FILES ON)

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION [=[
Orvane makes sure you never miss the start of a meeting. It reads your
calendars (the desktop's calendar database, and optionally Google Calendar
and Microsoft 365 accounts), lists upcoming meetings in a tray menu, and at
the lead time you choose takes over the active display with a full-screen
alert that offers to join, snooze, exclude or dismiss the meeting.

Orvane never changes your calendars, never shows an alert over a locked or
sleeping session, and never takes the keyboard while a password prompt
holds it.]=])

set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Orvane developers <dev@velmont.com>")
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
if(OrvaneWebsiteURL)
    set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${OrvaneWebsiteURL}")
endif()

# CPack would fall back to "i386" without dpkg; a package for the wrong architecture is worse than none.
find_program(ORVANE_DPKG_EXECUTABLE dpkg)
if(ORVANE_DPKG_EXECUTABLE)
    execute_process(COMMAND "${ORVANE_DPKG_EXECUTABLE}" --print-architecture
                    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
                    COMMAND_ERROR_IS_FATAL ANY)
endif()

# dpkg-shlibdeps finds the shared libraries the program links (Qt, the calendar libraries, …). What it cannot see is
# loaded at run time: the QML modules the alert view imports, and the calendar daemon the program talks to over
# D-Bus.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(orvane_runtime_packages
    qml6-module-qtquick
    qml6-module-qtquick-shapes
    qml6-module-qtquick-layouts
    qml6-module-qtquick-controls
    qml6-module-qtquick-templates
    qml6-module-qtquick-window
    qml6-module-qtqml-workerscript
    evolution-data-server)
list(JOIN orvane_runtime_packages ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
# Not needed to start, but expected: a Secret Service keyring keeps connected accounts' sign-ins, xdg-open opens the
# browser for them, and the SVG image plugin lets the desktop's icon theme draw the menu's icons.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "gnome-keyring | keepassxc, xdg-utils, libqt6svg6")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)

include(CPack)
