# What is installed, and the Debian package of it: `cmake --install build/release`, and
# `cpack -G DEB --config build/release/CPackConfig.cmake`.

set(CMAKE_INSTALL_DOCDIR share/doc/vexa)
include(GNUInstallDirs)

# Where Debian's web servers keep their CGI programs. The configuration is /etc/vexa.conf.
install(TARGETS vexa DESTINATION lib/cgi-bin)
# What the system starts.
install(TARGETS vexa-fcgi DESTINATION ${CMAKE_INSTALL_SBINDIR})
# What a developer starts by hand.
install(TARGETS vexa-serve DESTINATION ${CMAKE_INSTALL_BINDIR})
# All that a package of ours is built with.
install(DIRECTORY include/vexa DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES examples/vexa.conf DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_PACKAGE_NAME vexa)
# The version stands in the source.
file(STRINGS src/vexa.h version REGEX "char kVersion")
string(REGEX REPLACE ".*\"(.*)\".*" "\\1" CPACK_PACKAGE_VERSION "${version}")
set(CPACK_PACKAGE_CONTACT "Vexa <vexa@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Server-side pages with tables, mail and calls behind them")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.36), libmicrohttpd12, libfcgi0ldbl, tzdata")
# Loaded when a page first needs them: calls, mail, archives of packages, SQL databases.
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
  "libcurl4, libgmime-3.0-0, libarchive13, libsqlite3-0, libpq5, ca-certificates")
include(CPack)
