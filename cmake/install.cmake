# What `cmake --install` puts under the prefix, and the package files that let other projects
# find it: find_package(vmio) gives vmio::vmio (shared) and vmio::vmio_static; pkg-config
# knows vmio.
include(CMakePackageConfigHelpers)

install(TARGETS vmio_shared vmio_static EXPORT vmio-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/vmio DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/vmio/version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vmio)

set(vmio_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vmio)
install(EXPORT vmio-targets NAMESPACE vmio:: DESTINATION ${vmio_cmake_dir})
configure_package_config_file(cmake/vmio-config.cmake.in ${PROJECT_BINARY_DIR}/vmio-config.cmake
                              INSTALL_DESTINATION ${vmio_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vmio-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vmio-config.cmake ${PROJECT_BINARY_DIR}/vmio-config-version.cmake
        DESTINATION ${vmio_cmake_dir})

# Relative to the .pc file, so the package works wherever the prefix is given at install time.
file(RELATIVE_PATH vmio_pc_to_prefix /p/${CMAKE_INSTALL_LIBDIR}/pkgconfig /p)
configure_file(cmake/vmio.pc.in ${PROJECT_BINARY_DIR}/vmio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vmio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(VMIO_BUILD_TOOLS)
  install(TARGETS vmio_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(VMIO_BUILD_SIM)
  install(TARGETS vmio-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# The example sensor table, in the data folder where the installed library looks for it.
install(FILES "${VMIO_SENSOR_TABLE}" DESTINATION ${CMAKE_INSTALL_DATADIR}/vmio)
if(EXISTS "${PROJECT_SOURCE_DIR}/udev/60-vmio-logit.rules")
  install(FILES udev/60-vmio-logit.rules DESTINATION lib/udev/rules.d)
endif()
file(GLOB vmio_man_pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/doc/*.1)
install(FILES ${vmio_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
if(EXISTS "${PROJECT_SOURCE_DIR}/doc/vmio.bash-completion")
  install(FILES doc/vmio.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME vmio)
endif()
