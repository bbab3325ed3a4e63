# `cpack -G DEB` in the build folder creates a Debian package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME contents-mgr)
set(CPACK_PACKAGE_VENDOR dorn)
set(CPACK_PACKAGE_CONTACT "dorn <contents-mgr@dorn.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "media contents of USB storages and cameras over D-Bus")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Finds USB sticks and cameras, keeps a database of the photos, videos and music
on them, and answers queries of its clients page by page. Inserted sticks are
mounted read-only below /opt/storage/usb.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "systemd, udev, dbus, mount, kmod")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ntfs-3g")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_LIST_DIR}/debian/postinst
  ${CMAKE_CURRENT_LIST_DIR}/debian/prerm
  ${CMAKE_CURRENT_LIST_DIR}/debian/postrm)
include(CPack)
