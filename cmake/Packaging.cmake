# Debian packages, one for each component:
#   cmake --workflow --preset package       # lands in build/package
set(FXDS_MAINTAINER "libostrelfxds maintainers <libostrelfxds@localhost>" CACHE STRING
  "Maintainer of the Debian packages, as NAME <ADDRESS>")

set(runtime_package libostrelfxds${PROJECT_VERSION_MAJOR})
set(dev_package libostrelfxds-dev)
set(tools_package ostrelfxds-tools)
set(package_version ${PROJECT_VERSION}-1)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime dev tools)
find_package(Doxygen QUIET)
if(FXDS_MANUAL AND DOXYGEN_FOUND)
  list(APPEND CPACK_COMPONENTS_ALL doc)
endif()
if(TARGET fxflow_mqtt)
  list(APPEND CPACK_COMPONENTS_ALL mqtt)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR ${PROJECT_NAME})
set(CPACK_PACKAGE_CONTACT ${FXDS_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${FXDS_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${PROJECT_NAME})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(introduction "libostrelfxds is a C++17 library for interactive programs: strings,
containers, objects that send values to one another, a select() loop with
timers, saving and loading of object graphs, and a regular-expression engine;
libostrelfxflow, on top of it, runs networks of such objects from texts.")

# The libraries always change their sonames together, so they share a package,
# as Debian's policy allows (8.1). dpkg-shlibdeps takes the dependencies of
# programs from the file shlibs.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Debug information is a separate package, libostrelfxds1-dbgsym; that of the
# tools is stripped.
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
# The version of the library that introduced each symbol, if that is recorded.
if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/debian/symbols)
  list(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/symbols)
endif()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${introduction}
.
This package holds the shared libraries.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${dev_package})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtime_package} (= ${package_version})")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "pkg-config, cmake, gdb, libostrelfxds-doc")
set(CPACK_COMPONENT_DEV_DESCRIPTION "${introduction}
.
This package holds what it takes to build programs with the library: headers,
files for CMake and pkg-config, examples, and what gdb needs to show values.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "${introduction}
.
This package holds fxgrep, which prints the lines of files that a pattern
occurs in, fxdump, which shows, draws and checks saved objects, and fxflow, which
runs, checks, tests and watches networks of objects that texts describe.")

# A separate package, so that the tools do not depend on its libraries.
set(CPACK_DEBIAN_MQTT_PACKAGE_NAME fxflow-mqtt)
set(CPACK_DEBIAN_MQTT_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_MQTT_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_MQTT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_MQTT_PACKAGE_ENHANCES ${tools_package})
set(CPACK_COMPONENT_MQTT_DESCRIPTION "${introduction}
.
This package holds a plug-in for fxflow: elements that exchange values with the
topics of an MQTT broker.")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME libostrelfxds-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOC_DESCRIPTION "${introduction}
.
This package holds the manual: the guide, the contracts of all classes by
topic, and the pages on how the library is built.")

# The tools need a library that is not installed yet.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${PROJECT_BINARY_DIR}/fxds ${PROJECT_BINARY_DIR}/ostrelks ${PROJECT_BINARY_DIR}/flow)

# Files that only Debian wants are added to the trees when they are packed.
string(TIMESTAMP changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in
  ${PROJECT_BINARY_DIR}/debian/changelog @ONLY)
file(STRINGS ${PROJECT_SOURCE_DIR}/LICENSE license)
list(TRANSFORM license PREPEND " ")
list(JOIN license "\n" FXDS_LICENSE_TEXT)
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/copyright.in
  ${PROJECT_BINARY_DIR}/debian/copyright @ONLY)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/Finish.cmake)
set(CPACK_FXDS_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_FXDS_DEBIAN_DIR ${PROJECT_BINARY_DIR}/debian)
set(CPACK_FXDS_STRIP ${CMAKE_STRIP})
set(CPACK_FXDS_DOCDIR ${CMAKE_INSTALL_DOCDIR})
include(CPack)
