# The Debian package, built by CPack from the install rules (scripts/package): every program, the user units in
# /usr/lib/systemd/user, manual pages, bash completion, copyright and changelog. Its library dependencies come from
# dpkg-shlibdeps; lintian checks it (packaging/debian/lintian-overrides says why for what it may say).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korbanhold)
set(CPACK_PACKAGE_VENDOR "The Korbanhold developers")
set(CPACK_PACKAGE_CONTACT "Korbanhold developers <korbanhold@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "folder synchronisation service of Korbanhold")
string(CONCAT CPACK_PACKAGE_DESCRIPTION
  "Korbanhold keeps the user's folder Korbanhold in step with the\n"
  "product's server. This package holds the background synchronisation\n"
  "service, started on demand by systemd user units, its file watcher,\n"
  "its command line and a local reference server for trying it out.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "systemd")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# CPack's long description is the summary line followed by CPACK_PACKAGE_DESCRIPTION, wrapped as control files ask.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "${CPACK_PACKAGE_DESCRIPTION}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(GNUInstallDirs)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/lintian-overrides
  DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME korbanhold)
include(CPack)
