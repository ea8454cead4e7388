# Tests of what is installed. With sanitizers or counted lines the installed library would ask
# more of its users than it promises.
if(TARGET fxgrep AND TARGET fxdump)
  add_test(NAME Manuals COMMAND ${CMAKE_CURRENT_LIST_DIR}/manuals.sh ${PROJECT_SOURCE_DIR}/tools
    $<TARGET_FILE:fxgrep> $<TARGET_FILE:fxdump> $<TARGET_FILE:fxflow>)
  if(FXDS_INSTALL AND NOT FXDS_SANITIZE AND NOT FXDS_COVERAGE)
    add_test(NAME Install COMMAND ${CMAKE_CURRENT_LIST_DIR}/run.sh
      ${CMAKE_COMMAND} ${CMAKE_CXX_COMPILER} ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  endif()
endif()
