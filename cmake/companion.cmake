# What a program links beside the library: the archive rtsptap::NAME for programs, and rtsptap::NAME_shared for what
# loads it at run time, such as Python. With NEEDS_LIBRARY the archive is for programs that link the library in
# whichever form, and there is a shared one only where the library is shared. NAME_targets are those there are.
function(add_companion name)
  cmake_parse_arguments(PARSE_ARGV 1 with "NEEDS_LIBRARY" "" "SOURCES;LINKS")
  set(targets rtsptap_${name})
  add_library(rtsptap_${name} STATIC ${with_SOURCES})
  add_library(rtsptap::${name} ALIAS rtsptap_${name})
  set_target_properties(rtsptap_${name} PROPERTIES OUTPUT_NAME rtsptap-${name} EXPORT_NAME ${name})
  if(NOT with_NEEDS_LIBRARY OR rtsptap IN_LIST library_targets)
    list(APPEND targets rtsptap_${name}_shared)
    add_library(rtsptap_${name}_shared SHARED EXCLUDE_FROM_ALL ${with_SOURCES})
    add_library(rtsptap::${name}_shared ALIAS rtsptap_${name}_shared)
    # Another stem than the archive's: -lrtsptap-NAME goes on meaning that one.
    set_target_properties(rtsptap_${name}_shared PROPERTIES OUTPUT_NAME rtsptap_${name} EXPORT_NAME ${name}_shared
                          VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(with_NEEDS_LIBRARY)
      target_link_libraries(rtsptap_${name}_shared PRIVATE rtsptap)
    endif()
    string(TOUPPER RTSPTAP_${name} is_wanted)
    if(${is_wanted} AND (RTSPTAP_INSTALL OR RTSPTAP_TESTS))
      set_target_properties(rtsptap_${name}_shared PROPERTIES EXCLUDE_FROM_ALL OFF)
    endif()
  endif()
  foreach(library ${targets})
    target_include_directories(${library} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include)
    target_link_libraries(${library} PRIVATE $<BUILD_INTERFACE:rtsptap_own_code> ${with_LINKS})
    target_compile_options(${library} PRIVATE -fno-exceptions) # a C program links it without libstdc++
  endforeach()
  set(${name}_targets ${targets} PARENT_SCOPE)
endfunction()
