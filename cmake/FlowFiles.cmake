# The files of the library in flow/, as paths within it. Parts: text, run, elements.
#   flow_public_headers  flow/Name.h         what programs include
#   flow_private_headers flow/<part>/Name.h  for sources only; not installed
#   flow_sources         flow/<part>/Name.cc
set(flow_folder ${CMAKE_CURRENT_LIST_DIR}/../flow)
set(flow_private_headers)
set(flow_sources)
set(glob_options)
if(NOT CMAKE_SCRIPT_MODE_FILE)
  set(glob_options CONFIGURE_DEPENDS)
endif()
file(GLOB flow_public_headers RELATIVE ${flow_folder} ${glob_options} ${flow_folder}/*.h)
foreach(part text run elements)
  file(GLOB part_headers RELATIVE ${flow_folder} ${glob_options} ${flow_folder}/${part}/*.h)
  file(GLOB part_sources RELATIVE ${flow_folder} ${glob_options} ${flow_folder}/${part}/*.cc)
  list(APPEND flow_private_headers ${part_headers})
  list(APPEND flow_sources ${part_sources})
endforeach()
