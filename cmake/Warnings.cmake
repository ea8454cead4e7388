# One set of warnings for all targets.
add_library(fxds_warnings INTERFACE)
target_compile_options(fxds_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  $<$<BOOL:${FXDS_WERROR}>:-Werror>)
