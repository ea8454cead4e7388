# Reads the table fxds/rooms.cmake. Afterwards there are, of paths within fxds/:
#
#   fxds_public_headers  fxds_detail_headers  fxds_private_headers  fxds_sources
#   fxds_rooms           the rooms, lowest first
#   fxds_room_of_<path>  the room of a file
#   fxds_below_<room>    the rooms that it may use, itself among them
#   fxds_allowed_<path>  the headers of higher rooms that a file may include
foreach(list rooms public_headers detail_headers private_headers sources)
  set(fxds_${list})
endforeach()

macro(fxds_room room)
  cmake_parse_arguments(entry "" "" "ON;HEADERS;DETAIL;PRIVATE;SOURCES" ${ARGN})
  if(entry_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "fxds/rooms.cmake, ${room}: ${entry_UNPARSED_ARGUMENTS}")
  endif()
  list(APPEND fxds_rooms ${room})
  set(fxds_below_${room} ${room})
  foreach(lower ${entry_ON})
    if(NOT fxds_below_${lower})
      message(FATAL_ERROR "fxds/rooms.cmake: ${room} stands on ${lower}, which is not above it")
    endif()
    list(APPEND fxds_below_${room} ${fxds_below_${lower}})
  endforeach()
  fxds_files(${room} public_headers "" .h ${entry_HEADERS})
  fxds_files(${room} detail_headers detail/ .h ${entry_DETAIL})
  fxds_files(${room} private_headers ${room}/ .h ${entry_PRIVATE})
  fxds_files(${room} sources ${room}/ .cc ${entry_SOURCES})
endmacro()

macro(fxds_files room kind folder ending)
  foreach(name ${ARGN})
    list(APPEND fxds_${kind} ${folder}${name}${ending})
    set(fxds_room_of_${folder}${name}${ending} ${room})
  endforeach()
endmacro()

macro(fxds_exception file header reason)
  list(APPEND fxds_allowed_${file} ${header}.h)
endmacro()

include(${CMAKE_CURRENT_LIST_DIR}/../fxds/rooms.cmake)
