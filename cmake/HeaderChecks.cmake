# Every header compiles alone, and may be included twice: each is the
# whole of a translation unit of its own. One compiler tells; sanitizers would
# tell nothing new, and clang-tidy sees the headers where they are used.
if(NOT FXDS_SANITIZE AND NOT FXDS_COVERAGE AND NOT FXDS_TIDY)
  include(${CMAKE_CURRENT_LIST_DIR}/Rooms.cmake)
  set(headers ${fxds_public_headers} ${fxds_detail_headers} ${fxds_private_headers})
  list(TRANSFORM headers PREPEND fxds/)
  include(${CMAKE_CURRENT_LIST_DIR}/FlowFiles.cmake)
  list(TRANSFORM flow_public_headers PREPEND flow/)
  list(TRANSFORM flow_private_headers PREPEND flow/)
  list(APPEND headers ${flow_public_headers} ${flow_private_headers})
  set(units)
  foreach(header IN LISTS headers ITEMS ostrelks/ostrelks.h)
    string(REPLACE "/" "_" unit ${header})
    set(unit ${CMAKE_CURRENT_BINARY_DIR}/headers/${unit}.cc)
    file(CONFIGURE OUTPUT ${unit} CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
    list(APPEND units ${unit})
  endforeach()
  add_library(header_checks OBJECT ${units})
  target_link_libraries(header_checks PRIVATE ostrelfxds fxds_warnings)
endif()

# The rooms are checked as a test.
add_test(NAME Rooms
  COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_LIST_DIR}/CheckRooms.cmake)
