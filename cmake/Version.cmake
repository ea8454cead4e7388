# The library's identification. The date is that of the build folder: a new one
# at every configuration would have everything linked anew. It honours
# SOURCE_DATE_EPOCH, so that two builds of the same sources can be the same to
# the byte.
if(NOT DEFINED CACHE{FXDS_BUILD_DATE} OR DEFINED ENV{SOURCE_DATE_EPOCH})
  string(TIMESTAMP FXDS_BUILD_DATE "%Y-%m-%d %H:%M:%S" UTC)
  set(FXDS_BUILD_DATE "${FXDS_BUILD_DATE}" CACHE INTERNAL "Date in the library's identification")
endif()

set(banner_text
  "*************************************************************************"
  "*"
  "*   ${PROJECT_NAME} ${PROJECT_VERSION}"
  "*   Foundation classes for interactive tools"
  "*"
  "*   Made available under the terms that come with its sources."
  "*   There is no warranty, to the extent that the law permits."
  "*"
  "*************************************************************************")
set(FXDS_BANNER "")
foreach(line IN LISTS banner_text)
  string(LENGTH "${line}" length)
  math(EXPR missing "72 - ${length}")
  if(missing GREATER_EQUAL 0)
    string(REPEAT " " ${missing} blanks)
    string(APPEND line "${blanks}*")
  endif()
  string(APPEND FXDS_BANNER "    \"${line}\", \\\n")
endforeach()
string(REGEX REPLACE ", \\\\\n$" "" FXDS_BANNER "${FXDS_BANNER}")
