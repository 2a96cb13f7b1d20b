# What `cmake --install` puts under the prefix, and the package files that let other projects
# find it: find_package(vmio) gives vmio::vmio (shared) and, where libcurl's and OpenSSL's
# development files are found, vmio::vmio_static; pkg-config knows vmio. Each file belongs to
# one of the Debian packages cmake/packages.cmake makes: lib (libvmio0), dev (libvmio-dev) and
# tools (vmio-tools).
include(CMakePackageConfigHelpers)

install(TARGETS vmio_shared EXPORT vmio-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT lib NAMELINK_COMPONENT dev)
install(TARGETS vmio_static EXPORT vmio-static-targets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(DIRECTORY include/vmio DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/vmio/version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vmio COMPONENT dev)
# The example sensor table, in the data folder where the installed library looks for it.
install(FILES "${VMIO_SENSOR_TABLE}" DESTINATION ${CMAKE_INSTALL_DATADIR}/vmio COMPONENT lib)

set(vmio_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vmio)
install(EXPORT vmio-targets NAMESPACE vmio:: DESTINATION ${vmio_cmake_dir} COMPONENT dev)
install(EXPORT vmio-static-targets NAMESPACE vmio:: DESTINATION ${vmio_cmake_dir} COMPONENT dev)
configure_package_config_file(cmake/vmio-config.cmake.in ${PROJECT_BINARY_DIR}/vmio-config.cmake
                              INSTALL_DESTINATION ${vmio_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vmio-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vmio-config.cmake ${PROJECT_BINARY_DIR}/vmio-config-version.cmake
        DESTINATION ${vmio_cmake_dir} COMPONENT dev)

# Relative to the .pc file, so the package works wherever the prefix is given at install time.
file(RELATIVE_PATH vmio_pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
configure_file(cmake/vmio.pc.in ${PROJECT_BINARY_DIR}/vmio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vmio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

if(VMIO_BUILD_TOOLS)
  install(TARGETS vmio_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(VMIO_BUILD_SIM)
  install(TARGETS vmio-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()
if(VMIO_BUILD_TOOLS OR VMIO_BUILD_SIM)
  install(FILES udev/60-vmio-logit.rules DESTINATION lib/udev/rules.d COMPONENT tools)
  install(FILES doc/vmio.1 doc/vmio-sim.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES doc/vmio.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME vmio COMPONENT tools)
  install(FILES doc/vmio-sim.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME vmio-sim COMPONENT tools)
endif()

include(cmake/packages.cmake)
