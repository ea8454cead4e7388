# The files of flow/, of paths within it:
#   flow_public_headers  flow/Name.h         what programs include
#   flow_private_headers flow/<part>/Name.h  for sources only; not installed
#   flow_sources         flow/<part>/Name.cc
set(flow_folder ${CMAKE_CURRENT_LIST_DIR}/../flow)
set(glob_options)
if(NOT CMAKE_SCRIPT_MODE_FILE)
  set(glob_options CONFIGURE_DEPENDS)
endif()
file(GLOB flow_public_headers RELATIVE ${flow_folder} ${glob_options} ${flow_folder}/*.h)
file(GLOB flow_private_headers RELATIVE ${flow_folder} ${glob_options} ${flow_folder}/*/*.h)
file(GLOB flow_sources RELATIVE ${flow_folder} ${glob_options} ${flow_folder}/*/*.cc)
