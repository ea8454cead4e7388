# Builds the examples against the installed library:
#   cmake -B /tmp/examples && cmake --build /tmp/examples
cmake_minimum_required(VERSION 3.16)
project(ostrelfxds_examples LANGUAGES CXX)

find_package(ostrelfxds 1 REQUIRED CONFIG)

# A source file here is a program; so is a folder of them.
file(GLOB entries RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} *)
foreach(entry IN LISTS entries)
  if(IS_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/${entry})
    file(GLOB sources ${entry}/*.cc)
  elseif(entry MATCHES "\\.cc$")
    set(sources ${entry})
  else()
    continue()
  endif()
  if(sources)
    get_filename_component(name ${entry} NAME_WE)
    add_executable(${name} ${sources})
    target_link_libraries(${name} PRIVATE ostrelfxds::ostrelfxds)
  endif()
endforeach()
