# Debian packages of what is installed: `cpack -G DEB` in the directory of a build. They go below
# /usr, whatever prefix that build has.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zev)
set(CPACK_PACKAGE_CONTACT "ZEV maintainers <maintainers@zev.invalid>" CACHE STRING "Who made the packages")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL libzev1 libzev-dev zev zevd)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/packages/stage.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION vcs)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

# A package's name, section and what it needs, and its description with the first line apart.
function(zev_package component section depends title text)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${component} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${title}\n${text}" PARENT_SCOPE)
endfunction()
set(own "libzev1 (= ${PROJECT_VERSION})")
string(REGEX MATCH "^[0-9]+" icu "${ICU_VERSION}") # loaded at first use: nothing links it
zev_package(libzev1 libs "libicu${icu}" "version control for drawings - library"
  "The library that keeps versions of CAD drawings, object by object, in a Git repository.")
zev_package(libzev-dev libdevel "${own}" "version control for drawings - development"
  "Headers of libzev, and what pkg-config and CMake need to find it.")
zev_package(zev vcs "${own}" "version control for drawings - command line"
  "Takes DXF files into a repository, shows and merges what changed in them by object, and works with a server.")
zev_package(zevd vcs "${own}, adduser" "version control for drawings - server"
  "Serves the projects of a team over HTTP or TLS, with users, groups and rights on paths. Projects lie in /var/lib/zev.")
set(CPACK_DEBIAN_ZEV_PACKAGE_RECOMMENDS librsvg2-bin) # pictures as PNG and PDF
set(CPACK_DEBIAN_ZEV_PACKAGE_SUGGESTS xdg-utils)
set(CPACK_DEBIAN_ZEVD_PACKAGE_CONTROL_EXTRA
  ${CMAKE_SOURCE_DIR}/cmake/packages/postinst ${CMAKE_SOURCE_DIR}/cmake/packages/prerm)
include(CPack)
