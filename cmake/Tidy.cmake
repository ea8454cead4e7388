# clang-tidy looks at every file of the libraries before it is compiled, by the rules of the
# nearest .clang-tidy. So Ninja knows what has been looked at, and only what changed is looked
# at again. All else is only looked at.
if(FXDS_TIDY)
  find_program(FXDS_CLANG_TIDY clang-tidy REQUIRED)
  # The rules are part of the command: when they change, everything is checked.
  set(rules "")
  foreach(file .clang-tidy tests/.clang-tidy)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${file})
    file(SHA1 ${PROJECT_SOURCE_DIR}/${file} hash)
    string(SUBSTRING ${hash} 0 8 hash)
    string(APPEND rules ${hash})
  endforeach()
  set(CMAKE_CXX_CLANG_TIDY ${FXDS_CLANG_TIDY} --quiet --extra-arg=-DFXDS_TIDY_RULES=0x${rules})
endif()

include(${CMAKE_CURRENT_LIST_DIR}/Together.cmake)

# fxds_add_program(NAME [MODULE] FILES...)
# Adds a program or a plug-in, or what clang-tidy looks at instead.
function(fxds_add_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg MODULE "" "")
  if(FXDS_TIDY)
    add_library(${name} OBJECT ${arg_UNPARSED_ARGUMENTS})
    fxds_only_look(${name})
  elseif(arg_MODULE)
    add_library(${name} MODULE ${arg_UNPARSED_ARGUMENTS})
  else()
    add_executable(${name} ${arg_UNPARSED_ARGUMENTS})
  endif()
endfunction()

# The objects of the target are only looked at: instead of compiling, the compiler says which
# headers they have.
function(fxds_only_look target)
  set_target_properties(${target} PROPERTIES
    CXX_COMPILER_LAUNCHER ${PROJECT_SOURCE_DIR}/cmake/preprocess.sh)
endfunction()

# fxds_tidy_together(NAME FILES... [RULES file] [GLOBAL names] [DEFINE macros] [USE targets])
# Lets clang-tidy look at programs together, as most of its time goes into the headers of the
# standard library. GLOBAL: see fxds_write_together(). DEFINE are macros
# that hold paths, USE what the programs link. What is compiled only where another library is
# installed is not looked at.
function(fxds_tidy_together name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" RULES "GLOBAL;DEFINE;USE")
  set(unit ${PROJECT_BINARY_DIR}/tidied/${name}.cc)
  fxds_write_together(${unit} ${arg_UNPARSED_ARGUMENTS} GLOBAL ${arg_GLOBAL})
  add_library(tidied_${name} OBJECT ${unit})
  target_link_libraries(tidied_${name} PRIVATE ${arg_USE})
  list(TRANSFORM arg_DEFINE APPEND "=\"\"")
  target_compile_definitions(tidied_${name} PRIVATE ${arg_DEFINE})
  target_compile_options(tidied_${name} PRIVATE
    $<TARGET_PROPERTY:fxds_warnings,INTERFACE_COMPILE_OPTIONS>
    -Wno-return-type)  # of main() in a namespace
  set(tidy ${CMAKE_CXX_CLANG_TIDY})
  if(arg_RULES)
    list(APPEND tidy --config-file=${arg_RULES})
  endif()
  set_target_properties(tidied_${name} PROPERTIES CXX_CLANG_TIDY "${tidy}")
  fxds_only_look(tidied_${name})
endfunction()
