# Warnings of our own code; errors, so that none is left.
add_library(rtsptap_warnings INTERFACE)
target_compile_options(rtsptap_warnings INTERFACE -Wall -Wextra -Wconversion -Werror
  $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
  $<$<CXX_COMPILER_ID:Clang>:-Wshadow>)
