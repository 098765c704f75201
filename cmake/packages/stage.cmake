# Run by cpack on the files of all packages before these are made: what a package has and a plain
# installation hasn't. The system's own directories need no run path.
file(GLOB packages ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(package ${packages})
  get_filename_component(name ${package} NAME)
  set(documents ${package}/usr/share/doc/${name})
  file(MAKE_DIRECTORY ${documents})
  file(COPY ${CMAKE_CURRENT_LIST_DIR}/copyright DESTINATION ${documents}
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${documents}/changelog "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * Release ${CPACK_PACKAGE_VERSION}.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
  set(unit ${package}/usr/lib/systemd/system/zevd.service)
  if(EXISTS ${unit}) # it names the prefix of where it was put
    file(READ ${unit} text)
    string(REPLACE "${package}" "" text "${text}")
    file(WRITE ${unit} "${text}")
  endif()
  file(GLOB pages ${package}/usr/share/man/man1/*.1)
  execute_process(COMMAND gzip -9nf ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB_RECURSE programs ${package}/usr/bin/* ${package}/usr/lib/*.so*)
  foreach(program ${programs})
    if(NOT IS_SYMLINK ${program})
      file(RPATH_REMOVE FILE ${program})
    endif()
  endforeach()
endforeach()
