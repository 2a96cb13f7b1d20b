# Debian packages from the installed components (cpack -G DEB in the build folder, or
# scripts/test-packages.sh, which also checks them): libvmio0 (the shared library and its
# data), libvmio-dev (headers, the static library, the CMake and pkg-config files) and
# vmio-tools (vmio, vmio-sim, man pages, completion, the udev rule).
set(CPACK_PACKAGE_NAME vmio)
set(CPACK_PACKAGE_VENDOR "VMIO")
set(CPACK_PACKAGE_CONTACT "VMIO developers <vmio@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Device I/O for video-surveillance hosts")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_COMPONENTS_ALL lib dev tools)

set(CPACK_DEBIAN_LIB_PACKAGE_NAME libvmio${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libvmio-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libcurl4-openssl-dev | libcurl-dev, libssl-dev, libc-ares-dev")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vmio-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
# libvmio.so.0 comes from the build, not from an installed package: dpkg-shlibdeps takes it as
# the project's own, and the component dependencies say which package holds it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)

include(CPack)
cpack_add_component(lib DISPLAY_NAME "shared library"
                    DESCRIPTION "The VMIO shared library (libvmio.so.0) and its example LogIT sensor table")
cpack_add_component(dev DISPLAY_NAME "development files" DEPENDS lib
                    DESCRIPTION "Headers, the static library, and the CMake and pkg-config files of VMIO")
cpack_add_component(tools DISPLAY_NAME "command-line tools" DEPENDS lib
                    DESCRIPTION "vmio, the command line of the VMIO library, and vmio-sim, its simulated devices")
