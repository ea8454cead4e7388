# Brings the trees of the packages to Debian's form before they are packed: a
# folder of documents named after each package, with copyright and changelogs;
# manual pages and changelogs compressed; programs stripped.
cmake_minimum_required(VERSION 3.25)

function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(usr ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr)
  set(documents ${usr}/share/doc/${package})

  if(EXISTS ${usr}/${CPACK_FXDS_DOCDIR})
    file(RENAME ${usr}/${CPACK_FXDS_DOCDIR} ${documents})
    file(REMOVE ${documents}/CHANGELOG.md ${documents}/LICENSE)
    if(component STREQUAL dev)  # its documents and headers refer to the terms by that name
      file(CREATE_LINK copyright ${documents}/LICENSE SYMBOLIC)
    endif()
  endif()
  file(MAKE_DIRECTORY ${documents})
  file(COPY_FILE ${CPACK_FXDS_DEBIAN_DIR}/copyright ${documents}/copyright)
  file(COPY_FILE ${CPACK_FXDS_DEBIAN_DIR}/changelog ${documents}/changelog.Debian)
  file(COPY_FILE ${CPACK_FXDS_SOURCE_DIR}/CHANGELOG.md ${documents}/changelog)
  run(gzip -9nf ${documents}/changelog ${documents}/changelog.Debian)

  file(GLOB pages ${usr}/share/man/man1/*.1)
  if(pages)
    run(gzip -9nf ${pages})
  endif()
  file(GLOB programs ${usr}/bin/*)
  if(programs)
    run(${CPACK_FXDS_STRIP} --strip-unneeded -R .comment ${programs})
  endif()

  # Independent of the umask of the build.
  run(chmod -R u=rwX,go=rX ${usr})
endforeach()
