# clang-tidy looks at every file before it is compiled, by the rules of the
# nearest .clang-tidy. So Ninja knows what has been looked at, and only what
# changed is looked at again.
if(FXDS_TIDY)
  find_program(FXDS_CLANG_TIDY clang-tidy REQUIRED)
  # The rules go into the command: when they change, everything is looked at.
  set(rules "")
  foreach(file .clang-tidy tests/.clang-tidy)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${file})
    file(SHA1 ${PROJECT_SOURCE_DIR}/${file} hash)
    string(SUBSTRING ${hash} 0 8 hash)
    string(APPEND rules ${hash})
  endforeach()
  set(CMAKE_CXX_CLANG_TIDY ${FXDS_CLANG_TIDY} --quiet --extra-arg=-DFXDS_TIDY_RULES=0x${rules})
endif()
