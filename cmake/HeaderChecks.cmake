# Every header compiles alone: as the first include of a source that is compiled alone, or
# else as the whole of a separate translation unit. Each may be included twice. One compiler
# is enough; sanitizers would find nothing new, and clang-tidy checks the headers where they
# are used.
if(NOT FXDS_SANITIZE AND NOT FXDS_COVERAGE AND NOT FXDS_TIDY)
  include(${CMAKE_CURRENT_LIST_DIR}/Rooms.cmake)
  set(headers ${fxds_public_headers} ${fxds_detail_headers} ${fxds_private_headers})
  list(TRANSFORM headers PREPEND fxds/)
  include(${CMAKE_CURRENT_LIST_DIR}/FlowFiles.cmake)
  list(TRANSFORM flow_sources PREPEND flow/)
  list(TRANSFORM flow_public_headers PREPEND flow/)
  list(TRANSFORM flow_private_headers PREPEND flow/)
  list(APPEND headers ${flow_public_headers} ${flow_private_headers})
  set(sources)
  if(NOT FXDS_TOGETHER OR CMAKE_CXX_COMPILER_ID STREQUAL GNU)  # see fxds/CMakeLists.txt
    list(TRANSFORM fxds_sources PREPEND fxds/ OUTPUT_VARIABLE sources)
  endif()
  if(NOT FXDS_TOGETHER)
    list(APPEND sources ${flow_sources})
  endif()
  set(first_headers)
  foreach(source IN LISTS sources)
    file(STRINGS ${PROJECT_SOURCE_DIR}/${source} first REGEX "^#include" LIMIT_COUNT 1)
    list(APPEND first_headers ${first})
  endforeach()
  set(each_twice)
  foreach(header IN LISTS headers ITEMS ostrelks/ostrelks.h)
    set(include "#include \"${header}\"")
    string(APPEND each_twice "${include}\n${include}\n")
    if(NOT include IN_LIST first_headers)
      string(REPLACE "/" "_" unit ${header})
      set(unit ${CMAKE_CURRENT_BINARY_DIR}/headers/${unit}.cc)
      file(CONFIGURE OUTPUT ${unit} CONTENT "${include}\n")
      list(APPEND units ${unit})
    endif()
  endforeach()
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/headers/each_twice.cc CONTENT "${each_twice}")
  add_library(header_checks OBJECT ${units} ${CMAKE_CURRENT_BINARY_DIR}/headers/each_twice.cc)
  target_link_libraries(header_checks PRIVATE ostrelfxds fxds_warnings)
endif()

# The rooms are checked as a test.
add_test(NAME Rooms
  COMMAND ${CMAKE_COMMAND} -P ${CMAKE_CURRENT_LIST_DIR}/CheckRooms.cmake)
