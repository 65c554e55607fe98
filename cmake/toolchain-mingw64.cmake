# Cross build for 64-bit Windows with MinGW-w64 (Debian's mingw-w64 packages).
# The "-posix" compilers use the winpthreads thread model, which std::thread
# needs. Programs built here run through Wine, also when ctest runs them.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(QORC_MINGW_TRIPLET x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
