# The contents and places of `cmake --install`. Components: `runtime` (the libraries), `dev`
# (headers and packages for programs that use them), `tools`. Everything finds its parts
# relative to itself, so the installed tree may be moved.
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/Rooms.cmake)

# The headers are in a folder of their own, which users get as an include path:
# `#include "fxds/fxds.h"` works there as it does in the sources.
set(FXDS_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/ostrelfxds)
set(FXDS_INSTALL_CMAKE ${CMAKE_INSTALL_LIBDIR}/cmake)

foreach(header IN LISTS fxds_public_headers fxds_detail_headers)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/fxds/${header}
    DESTINATION ${FXDS_INSTALL_HEADERS}/fxds/${folder} COMPONENT dev)
endforeach()
include(${CMAKE_CURRENT_LIST_DIR}/FlowFiles.cmake)
foreach(header IN LISTS flow_public_headers)
  install(FILES ${PROJECT_SOURCE_DIR}/flow/${header}
    DESTINATION ${FXDS_INSTALL_HEADERS}/flow COMPONENT dev)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/ostrelks/ostrelks.h
  DESTINATION ${FXDS_INSTALL_HEADERS}/ostrelks COMPONENT dev)

# The libraries, which find one another beside themselves. ostrelfxds and ostrelfxflow are
# packages for find_package() and pkg-config.
set_target_properties(ostrelfxds ostrelfxflow PROPERTIES INSTALL_RPATH "$ORIGIN")
set(package_of_ostrelks ostrelfxds)
set(package_of_ostrelfxds ostrelfxds)
set(package_of_ostrelfxflow ostrelfxflow)
foreach(library ostrelks ostrelfxds ostrelfxflow)
  install(TARGETS ${library} EXPORT ${library}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT dev
    INCLUDES DESTINATION ${FXDS_INSTALL_HEADERS})
  install(EXPORT ${library}Targets NAMESPACE ${library}::
    DESTINATION ${FXDS_INSTALL_CMAKE}/${package_of_${library}} COMPONENT dev)
endforeach()

foreach(package ostrelfxds ostrelfxflow)
  configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/${package}Config.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/install/${package}Config.cmake
    INSTALL_DESTINATION ${FXDS_INSTALL_CMAKE}/${package}
    NO_SET_AND_CHECK_MACRO)
  write_basic_package_version_file(
    ${CMAKE_CURRENT_BINARY_DIR}/install/${package}ConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/install/${package}Config.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/install/${package}ConfigVersion.cmake
    DESTINATION ${FXDS_INSTALL_CMAKE}/${package} COMPONENT dev)
endforeach()

# For pkg-config. A library with checked preconditions wants its users checked, too; the
# CMake targets define that themselves.
file(RELATIVE_PATH FXDS_PC_PREFIX
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" FXDS_PC_PREFIX "${FXDS_PC_PREFIX}")
file(RELATIVE_PATH FXDS_PC_LIBDIR ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH FXDS_PC_HEADERS ${CMAKE_INSTALL_PREFIX}
  ${CMAKE_INSTALL_FULL_INCLUDEDIR}/ostrelfxds)
set(FXDS_PC_DEFINITIONS "")
if(FXDS_CHECKED)
  set(FXDS_PC_DEFINITIONS " -DFXDS_CHECKED")
endif()
foreach(package ostrelfxds ostrelfxflow)
  configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/install/${package}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/install/${package}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

# The tools, with their manual pages. The monitor is an example to be read, not a tool.
if(TARGET fxgrep)
  file(RELATIVE_PATH libraries_from_tools ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  foreach(tool fxgrep fxdump fxflow)
    set_target_properties(${tool} PROPERTIES INSTALL_RPATH "$ORIGIN/${libraries_from_tools}")
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    configure_file(${PROJECT_SOURCE_DIR}/tools/${tool}.1
      ${CMAKE_CURRENT_BINARY_DIR}/install/${tool}.1 @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/install/${tool}.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    get_target_property(has_completions ${tool} HAS_COMPLETIONS)
    if(has_completions)
      foreach(place bash:bash-completion/completions/${tool} zsh:zsh/site-functions/_${tool}
          fish:fish/vendor_completions.d/${tool}.fish)
        string(REGEX MATCH "([a-z]+):(.*)/(.*)" place ${place})
        install(FILES ${PROJECT_BINARY_DIR}/tools/${tool}.${CMAKE_MATCH_1}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/${CMAKE_MATCH_2} RENAME ${CMAKE_MATCH_3}
          COMPONENT tools)
      endforeach()
    endif()
  endforeach()
endif()

# Flows name plug-ins by their paths.
if(TARGET fxflow_mqtt)
  set_target_properties(fxflow_mqtt PROPERTIES INSTALL_RPATH "$ORIGIN/..")
  install(TARGETS fxflow_mqtt LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/fxflow COMPONENT mqtt)
endif()

# Files in the system's own folders find their libraries without a search path, which would
# only interfere with another version of a library.
foreach(component runtime tools mqtt)
  install(CODE "
    if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
      foreach(file
          ${CMAKE_INSTALL_LIBDIR}/libostrelfxds.so.${PROJECT_VERSION}
          ${CMAKE_INSTALL_LIBDIR}/libostrelfxflow.so.${PROJECT_VERSION}
          ${CMAKE_INSTALL_LIBDIR}/fxflow/mqtt.so
          ${CMAKE_INSTALL_BINDIR}/fxgrep
          ${CMAKE_INSTALL_BINDIR}/fxdump
          ${CMAKE_INSTALL_BINDIR}/fxflow)
        if(EXISTS \"\$ENV{DESTDIR}/usr/\${file}\")
          file(RPATH_REMOVE FILE \"\$ENV{DESTDIR}/usr/\${file}\")
        endif()
      endforeach()
    endif()" COMPONENT ${component})
endforeach()

# Documents, the examples as a separate project, and the printers for gdb.
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  ${PROJECT_SOURCE_DIR}/SECURITY.md ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md
  ${PROJECT_SOURCE_DIR}/LICENSE
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
install(FILES ${PROJECT_SOURCE_DIR}/fxds/rooms.cmake  # which documents refer to
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/fxds COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT dev FILES_MATCHING PATTERN *.md PATTERN *.svg)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
  COMPONENT dev FILES_MATCHING PATTERN *.h PATTERN *.cc PATTERN *.flow PATTERN CMakeLists.txt)

# gdb looks for the printers under the full name of the library, and they for their
# modules beside them; the prefix is the one that is installed to.
set(printers ${PROJECT_SOURCE_DIR}/tools/gdb)
if(EXISTS ${printers})
  set(place ${CMAKE_INSTALL_DATADIR}/gdb/auto-load/\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR})
  install(FILES ${printers}/libostrelfxds-gdb.py DESTINATION ${place}
    RENAME libostrelfxds.so.${PROJECT_VERSION}-gdb.py COMPONENT dev)
  install(DIRECTORY ${printers}/fxds_gdb DESTINATION ${place} COMPONENT dev
    FILES_MATCHING PATTERN *.py)
endif()
