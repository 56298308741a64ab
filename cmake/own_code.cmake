# How our own code is compiled. Warnings are errors for those who change it (RTSPTAP_WERROR), not for those who only
# build it.
add_library(rtsptap_own_code INTERFACE)
target_compile_features(rtsptap_own_code INTERFACE cxx_std_20)
target_compile_options(rtsptap_own_code INTERFACE -Wall -Wextra -Wconversion $<$<BOOL:${RTSPTAP_WERROR}>:-Werror>
  $<$<CXX_COMPILER_ID:GNU>:-Wshadow=local>
  $<$<CXX_COMPILER_ID:Clang>:-Wshadow>
  # g++ 12 sees overlapping copies in optimised std::string concatenations where there are none (GCC PR 105651).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
if(RTSPTAP_SANITIZE)
  # Nor can it follow instrumented code: std::regex, for one, looks uninitialised to it.
  target_compile_options(rtsptap_own_code INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
endif()
