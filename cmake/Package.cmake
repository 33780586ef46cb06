# `cpack -G DEB` (scripts/package) turns the install rules into a Debian package. The
# libraries it needs come from dpkg-shlibdeps, so the dependencies follow what the binary
# really links.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME varnex-desktop)
set(CPACK_PACKAGE_VENDOR "Varnex")
set(CPACK_PACKAGE_CONTACT "Varnex Desktop developers <desktop@varnex.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "encrypt and decrypt files with your phone")
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
    "Varnex protects files with two devices. The Varnex phone app holds the"
    "user's identity and does all encryption and decryption; this program is"
    "its face on the computer. The two pair by QR code over the local network;"
    "the user picks files and the people and groups who may open them, and the"
    "phone encrypts or decrypts them.")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS OFF)
# Qt's own texts (the file chooser) in the user's language.
# GNOME Files' menu entries need nautilus-python; the program works without it.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "qt6-translations-l10n, python3-nautilus")
# Loaded at run time, so dpkg-shlibdeps cannot see them: the simulator keeps its data in SQLite.
if(VARNEX_INSTALL_SIM)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt6sql6-sqlite")
endif()
include(CPack)
