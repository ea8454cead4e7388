# Reads the table fxds/rooms.cmake. Afterwards there are, of paths within fxds/:
#
#   fxds_public_headers  fxds_detail_headers  fxds_private_headers  fxds_sources
#   fxds_rooms           the rooms, lowest first
#   fxds_room_of_<path>  the room of a file
#   fxds_level_of_<room> its number, 0 for the lowest
#   fxds_allowed_<path>  the headers of higher rooms that a file may include
foreach(list rooms public_headers detail_headers private_headers sources)
  set(fxds_${list})
endforeach()

macro(fxds_room room)
  cmake_parse_arguments(entry "" "" "HEADERS;DETAIL;PRIVATE;SOURCES" ${ARGN})
  if(entry_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "fxds/rooms.cmake, ${room}: ${entry_UNPARSED_ARGUMENTS}")
  endif()
  list(LENGTH fxds_rooms fxds_level_of_${room})
  list(APPEND fxds_rooms ${room})
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
