# cmake --install: libraries, header, package config and pkg-config file.
install(TARGETS ${install_targets} EXPORT rtsptap-targets)
install(FILES include/rtsptap.h TYPE INCLUDE)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rtsptap)
foreach(target rtsptap_static rtsptap_digest)
  if(TARGET ${target})
    string(REPLACE rtsptap_digest digest exported_name ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${exported_name})
  endif()
endforeach()
install(EXPORT rtsptap-targets NAMESPACE rtsptap:: DESTINATION ${package_dir})
configure_package_config_file(cmake/rtsptap-config.cmake.in rtsptap-config.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(rtsptap-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-config-version.cmake DESTINATION ${package_dir})
# Found from where it lies, since --prefix moves an installation.
file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/rtsptap.pc.in rtsptap.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
