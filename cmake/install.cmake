# Installed tree: <prefix>/lib/libzev.so.1 with zev.conf beside it, which names <prefix>/share/zev
# as the application data directory; below that conf and logs.
file(RELATIVE_PATH ZEV_DATA ${CMAKE_INSTALL_FULL_LIBDIR} ${CMAKE_INSTALL_FULL_DATADIR}/zev)
configure_file(conf/zev.conf.in ${CMAKE_BINARY_DIR}/zev.conf @ONLY)
configure_file(cmake/zev.pc.in ${CMAKE_BINARY_DIR}/zev.pc @ONLY)

install(TARGETS zev EXPORT zev LIBRARY)
install(DIRECTORY include/zev TYPE INCLUDE)
install(FILES ${CMAKE_BINARY_DIR}/zev.conf DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY conf/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zev/conf PATTERN "*.in" EXCLUDE)
# For the user that a server runs as; everybody else's programs log in their state directory.
install(DIRECTORY DESTINATION ${CMAKE_INSTALL_DATADIR}/zev/logs DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
install(FILES ${CMAKE_BINARY_DIR}/zev.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(EXPORT zev NAMESPACE zev:: FILE zev-config.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zev)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/zev-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/zev-config-version.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/zev)
