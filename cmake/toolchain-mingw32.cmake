# Cross build for 32-bit Windows with MinGW-w64: the target on which the
# library's 32-bit figures hold. Its programs need a 32-bit Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)
set(QORC_MINGW_TRIPLET i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
