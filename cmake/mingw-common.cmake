# What the MinGW-w64 toolchain files share; QORC_MINGW_TRIPLET names the target.
set(CMAKE_C_COMPILER ${QORC_MINGW_TRIPLET}-gcc-posix)
set(CMAKE_CXX_COMPILER ${QORC_MINGW_TRIPLET}-g++-posix)
set(CMAKE_RC_COMPILER ${QORC_MINGW_TRIPLET}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${QORC_MINGW_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Programs run through Wine. The emulator applies to every test registered by
# target, so ctest runs the Windows programs as it runs the Linux ones.
find_program(QORC_WINE NAMES wine wine64)
if(QORC_WINE)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${QORC_WINE})
endif()

# The GCC runtime, the C++ library, winpthreads and zlib are linked in
# statically, so the programs and qorc.dll need no MinGW DLL beside them or on
# WINEPATH (qorc.dll itself is found beside the programs, in the build folder).
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")
