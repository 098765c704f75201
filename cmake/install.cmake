# Installed tree: <prefix>/lib/libzev.so.1 with zev.conf beside it, which names <prefix>/share/zev
# as the application data directory; below that conf and logs.
file(RELATIVE_PATH ZEV_DATA ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_DATADIR}/zev)
configure_file(conf/zev.conf.in ${CMAKE_BINARY_DIR}/zev.conf @ONLY)
# A tree that was moved is found where it lies.
file(RELATIVE_PATH ZEV_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/zev.pc.in ${CMAKE_BINARY_DIR}/zev.pc @ONLY)

install(TARGETS zev EXPORT zev LIBRARY COMPONENT libzev1 NAMELINK_COMPONENT libzev-dev)
install(DIRECTORY include/zev TYPE INCLUDE COMPONENT libzev-dev)
install(FILES ${CMAKE_BINARY_DIR}/zev.conf DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libzev1)
install(DIRECTORY conf/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zev/conf COMPONENT libzev1
  PATTERN "*.in" EXCLUDE PATTERN "conf/zev" EXCLUDE)
install(DIRECTORY conf/zev DESTINATION ${CMAKE_INSTALL_DATADIR}/zev/conf COMPONENT zev)
# What the desktop knows drawings by, and asks for their small pictures.
install(DIRECTORY share/ DESTINATION ${CMAKE_INSTALL_DATADIR} COMPONENT zev)
# For the user that a server runs as; everybody else's programs log in their state directory.
install(DIRECTORY DESTINATION ${CMAKE_INSTALL_DATADIR}/zev/logs COMPONENT libzev1 DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
install(FILES ${CMAKE_BINARY_DIR}/zev.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT libzev-dev)
install(EXPORT zev NAMESPACE zev:: FILE zev-config.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zev
  COMPONENT libzev-dev)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/zev-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zev-config-version.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zev
  COMPONENT libzev-dev)
