# exports.map bounds the exports of the shared libraries, and exports.txt beside their
# sources lists them. A name that goes, or changes, breaks programs; one that comes is a
# promise. Sanitizers and coverage add names of their own.
#   cmake --build --preset dev --target update_exports
if(FXDS_SANITIZE OR FXDS_COVERAGE)
  return()
endif()

set(update_exports)
foreach(library ostrelks ostrelfxds ostrelfxflow)
  get_target_property(folder ${library} SOURCE_DIR)
  file(STRINGS ${folder}/exports.map version REGEX "_${PROJECT_VERSION_MAJOR} {$")
  if(NOT version)
    message(FATAL_ERROR "${folder}/exports.map has the version of another soname")
  endif()
  target_link_options(${library} PRIVATE LINKER:--version-script=${folder}/exports.map)
  set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${folder}/exports.map)
  list(APPEND update_exports COMMAND ${CMAKE_CURRENT_LIST_DIR}/exports.sh
    update $<TARGET_FILE:${library}> ${folder}/exports.txt)
  if(FXDS_TESTS)
    add_test(NAME Exports_${library} COMMAND ${CMAKE_CURRENT_LIST_DIR}/exports.sh
      check $<TARGET_FILE:${library}> ${folder}/exports.txt)
  endif()
endforeach()
if(FXDS_TESTS)
  # Objects for optimisation at link time show nothing here.
  foreach(library ostrelfxds ostrelfxflow)
    get_target_property(folder ${library} SOURCE_DIR)
    add_test(NAME Exports_hidden_${library} COMMAND ${CMAKE_CURRENT_LIST_DIR}/exports.sh
      hidden ${folder} $<TARGET_OBJECTS:${library}> COMMAND_EXPAND_LISTS)
  endforeach()
endif()
add_custom_target(update_exports ${update_exports} VERBATIM)
add_dependencies(update_exports ostrelks ostrelfxds ostrelfxflow)

# Names alone do not show a size that has changed, nor a virtual function that has moved. The
# baselines are those of the preset dev, with g++.
#   cmake --build --preset dev --target update_abi
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_BUILD_TYPE STREQUAL RelWithDebInfo)
  set(abi_types $<TARGET_FILE:ostrelfxds> ${PROJECT_SOURCE_DIR}/fxds ${PROJECT_SOURCE_DIR}/fxds/abi.xml.xz)
  set(abi_symbols $<TARGET_FILE:ostrelfxds> libostrelfxds${PROJECT_VERSION_MAJOR} ${PROJECT_VERSION}
    ${CMAKE_CURRENT_LIST_DIR}/debian/symbols)
  add_custom_target(update_abi
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/abi.sh update-types ${abi_types}
    COMMAND ${CMAKE_CURRENT_LIST_DIR}/abi.sh update-symbols ${abi_symbols} VERBATIM)
  add_dependencies(update_abi ostrelfxds)
  if(FXDS_TESTS)
    foreach(what types symbols)
      add_test(NAME Abi_${what} COMMAND ${CMAKE_CURRENT_LIST_DIR}/abi.sh check-${what} ${abi_${what}})
      set_tests_properties(Abi_${what} PROPERTIES SKIP_RETURN_CODE 77)
    endforeach()
  endif()
endif()
