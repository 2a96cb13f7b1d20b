# Shared part of the mingw-w64 toolchain files: cross-compiling the Windows component on
# Debian. The including file sets VMIO_MINGW_TRIPLE and CMAKE_SYSTEM_PROCESSOR first.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${VMIO_MINGW_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${VMIO_MINGW_TRIPLE}-g++)
set(CMAKE_RC_COMPILER ${VMIO_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${VMIO_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The IDL compiler that comes with the cross tools.
set(VMIO_WIDL ${VMIO_MINGW_TRIPLE}-widl CACHE STRING "IDL compiler for the type library")
