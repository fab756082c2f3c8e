# The Debian package: `scripts/build.sh deb` (or `cpack -G DEB` in a build
# tree) makes quirepad_<version>_<arch>.deb installing under /usr.
# Shared libraries become dependencies through dpkg-shlibdeps; what the
# program runs or loads by name is listed by hand.
set(CPACK_PACKAGE_NAME quirepad)
set(CPACK_PACKAGE_VENDOR Halvern)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(QUIREPAD_DEB_MAINTAINER "Quirepad maintainers <maintainers@users.noreply.c-seed-316297ab.example>"
    CACHE STRING "Maintainer field of the Debian package")
set(CPACK_PACKAGE_CONTACT "${QUIREPAD_DEB_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "print to action: printed documents delivered as PDF files")
set(CPACK_PACKAGE_DESCRIPTION
    "Quirepad adds a print queue whose jobs are not printed: each document\n"
    "arrives as a PDF and goes where the user chooses, a folder under a name\n"
    "built from a pattern, an application, an e-book library, a sync folder,\n"
    "an e-reader or a workflow of the user's own. A tray program asks where\n"
    "a job goes, compresses and filters PDF files on the way, prints web\n"
    "pages to PDF and lets phones print to it over AirPrint.")
string(REPLACE ";" "" CPACK_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The scheduler and its clients (the queue, lp from the tray), Ghostscript,
# qpdf and poppler for PDF work and the sample workflows, the Korn shell for
# shell commands, xdg-utils for mail, and the Qt plugins loaded by name.
set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "cups, cups-client, ghostscript, qpdf, poppler-utils, ksh, xdg-utils, libqt6sql6-sqlite, libqt6svg6, qt6-qpa-plugins, libqt6webenginecore6-bin")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pkexec, avahi-daemon, udisks2, xclip, libglib2.0-bin, hicolor-icon-theme")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "calibre, gnome-screenshot | grim")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/../packaging/debian/postinst
    ${CMAKE_CURRENT_LIST_DIR}/../packaging/debian/prerm
    ${CMAKE_CURRENT_LIST_DIR}/../packaging/debian/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The changelog of a native package and lintian's notes on what is meant as it is.
set(QUIREPAD_DEB_DOC_DIR ${CMAKE_BINARY_DIR}/packaging)
string(TIMESTAMP QUIREPAD_DEB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/../packaging/debian/changelog.in ${QUIREPAD_DEB_DOC_DIR}/changelog @ONLY)
add_custom_command(OUTPUT ${QUIREPAD_DEB_DOC_DIR}/changelog.gz
    COMMAND gzip -9nkf changelog
    DEPENDS ${QUIREPAD_DEB_DOC_DIR}/changelog
    WORKING_DIRECTORY ${QUIREPAD_DEB_DOC_DIR}
    VERBATIM)
add_custom_target(quirepad_deb_changelog ALL DEPENDS ${QUIREPAD_DEB_DOC_DIR}/changelog.gz)
install(FILES ${QUIREPAD_DEB_DOC_DIR}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/quirepad)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/../packaging/debian/lintian-overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME quirepad)

include(CPack)
