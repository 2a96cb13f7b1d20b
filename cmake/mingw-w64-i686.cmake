# 32-bit Windows, the component's original target: cmake -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-i686.cmake
set(VMIO_MINGW_TRIPLE i686-w64-mingw32)
set(CMAKE_SYSTEM_PROCESSOR i686)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64.cmake)
