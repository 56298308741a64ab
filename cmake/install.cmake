# cmake --install: libraries, headers, license, package config and pkg-config file.
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rtsptap)
install(TARGETS ${library_targets} EXPORT rtsptap-targets FILE_SET HEADERS)
install(EXPORT rtsptap-targets NAMESPACE rtsptap:: DESTINATION ${package_dir})
install(FILES LICENSE TYPE DOC)

# An export of its own, as only its users need OpenSSL.
if(RTSPTAP_DIGEST)
  install(TARGETS ${digest_targets} EXPORT rtsptap-digest-targets)
  install(EXPORT rtsptap-digest-targets NAMESPACE rtsptap:: DESTINATION ${package_dir})
endif()

# The same.
if(RTSPTAP_TLS)
  install(TARGETS ${tls_targets} EXPORT rtsptap-tls-targets)
  install(EXPORT rtsptap-tls-targets NAMESPACE rtsptap:: DESTINATION ${package_dir})
  install(FILES include/rtsptap_tls.h TYPE INCLUDE)
endif()

# The same, of libsrtp2.
if(RTSPTAP_SRTP)
  install(TARGETS ${srtp_targets} EXPORT rtsptap-srtp-targets)
  install(EXPORT rtsptap-srtp-targets NAMESPACE rtsptap:: DESTINATION ${package_dir})
  install(FILES include/rtsptap_srtp.h TYPE INCLUDE)
endif()

configure_package_config_file(cmake/rtsptap-config.cmake.in rtsptap-config.cmake INSTALL_DESTINATION ${package_dir})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(rtsptap-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-config.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-config-version.cmake DESTINATION ${package_dir})

# Found from where it lies, since --prefix moves an installation; folders given as absolute ones stay there.
set(pc_prefix ${CMAKE_INSTALL_PREFIX})
if(NOT IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR})
  file(RELATIVE_PATH prefix_from_pc ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  set(pc_prefix "\${pcfiledir}/${prefix_from_pc}")
endif()
foreach(dir LIBDIR INCLUDEDIR)
  set(pc_${dir} ${CMAKE_INSTALL_${dir}})
  if(NOT IS_ABSOLUTE ${pc_${dir}})
    set(pc_${dir} "\${prefix}/${pc_${dir}}")
  endif()
endforeach()
set(pc_digest "")
set(pc_digest_hint "")
if(RTSPTAP_DIGEST)
  set(pc_digest "-lrtsptap-digest -lcrypto ")
  set(pc_digest_hint " itself, or adds -lrtsptap-digest -lcrypto")
endif()
configure_file(cmake/rtsptap.pc.in rtsptap.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
if(RTSPTAP_DIGEST)
  configure_file(cmake/rtsptap-digest.pc.in rtsptap-digest.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-digest.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

if(RTSPTAP_TLS)
  configure_file(cmake/rtsptap-tls.pc.in rtsptap-tls.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-tls.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

if(RTSPTAP_SRTP)
  configure_file(cmake/rtsptap-srtp.pc.in rtsptap-srtp.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/rtsptap-srtp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()

if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall COMMAND xargs -a install_manifest.txt -d "\\n" rm -fv -- VERBATIM)
endif()
