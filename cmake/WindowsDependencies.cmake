# Third-party libraries of the Windows build. zlib comes from Debian's MinGW
# package; Crypto++ and libdeflate have none, so their Debian source packages
# are fetched once into the build tree (cmake/fetch-debian-source.sh) and built
# here by the MinGW compiler. Defines QORC_DEPENDENCIES.
# Linked statically, as the GCC runtime is: no zlib1.dll to ship or find.
set(ZLIB_USE_STATIC_LIBS ON)
find_package(ZLIB REQUIRED)

set(QORC_DEBIAN_SOURCES ${CMAKE_BINARY_DIR}/_debian)
if(NOT EXISTS ${QORC_DEBIAN_SOURCES}/fetched)
  message(STATUS "Fetching the Debian sources of Crypto++ and libdeflate")
  execute_process(
    COMMAND bash ${CMAKE_CURRENT_LIST_DIR}/fetch-debian-source.sh ${QORC_DEBIAN_SOURCES} libcrypto++ libdeflate
    RESULT_VARIABLE fetch_result)
  if(NOT fetch_result EQUAL 0)
    message(FATAL_ERROR "Could not fetch the Debian source packages of Crypto++ and libdeflate")
  endif()
  file(TOUCH ${QORC_DEBIAN_SOURCES}/fetched)
endif()
file(GLOB QORC_CRYPTOPP_SOURCE LIST_DIRECTORIES true ${QORC_DEBIAN_SOURCES}/src/libcrypto++-*)
file(GLOB QORC_DEFLATE_SOURCE LIST_DIRECTORIES true ${QORC_DEBIAN_SOURCES}/src/libdeflate-*)
list(FILTER QORC_CRYPTOPP_SOURCE EXCLUDE REGEX "\\.(dsc|gz|xz)$")
list(FILTER QORC_DEFLATE_SOURCE EXCLUDE REGEX "\\.(dsc|gz|xz)$")

# libdeflate: the whole library, with its x86 code paths chosen at run time.
file(GLOB QORC_DEFLATE_UNITS ${QORC_DEFLATE_SOURCE}/lib/*.c ${QORC_DEFLATE_SOURCE}/lib/x86/*.c)
add_library(qorc_libdeflate STATIC ${QORC_DEFLATE_UNITS})
target_include_directories(qorc_libdeflate SYSTEM PUBLIC ${QORC_DEFLATE_SOURCE})
target_compile_options(qorc_libdeflate PRIVATE -O2 -w)
set_target_properties(qorc_libdeflate PROPERTIES POSITION_INDEPENDENT_CODE OFF)

# Crypto++: only the units that big integers and the primality tests need,
# portable code (no assembler units with their own instruction-set flags).
# Its headers are included as <cryptopp/...>, so a folder of the build tree
# gives that name to the source folder.
set(QORC_CRYPTOPP_UNITS cryptlib integer nbtheory misc allocate cpu algparam asn queue filters fips140 sha
  iterhash pubkey mqueue)
list(TRANSFORM QORC_CRYPTOPP_UNITS PREPEND ${QORC_CRYPTOPP_SOURCE}/)
list(TRANSFORM QORC_CRYPTOPP_UNITS APPEND .cpp)
# The templates that the library's DLL build would instantiate.
file(WRITE ${QORC_DEBIAN_SOURCES}/cryptopp_templates.cpp
  "#define CRYPTOPP_MANUALLY_INSTANTIATE_TEMPLATES\n#include \"algebra.cpp\"\n#include \"modarith.h\"\n#include \"algparam.h\"\n")
file(MAKE_DIRECTORY ${QORC_DEBIAN_SOURCES}/include)
file(CREATE_LINK ${QORC_CRYPTOPP_SOURCE} ${QORC_DEBIAN_SOURCES}/include/cryptopp SYMBOLIC)
add_library(qorc_cryptopp STATIC ${QORC_CRYPTOPP_UNITS} ${QORC_DEBIAN_SOURCES}/cryptopp_templates.cpp)
target_include_directories(qorc_cryptopp PRIVATE ${QORC_CRYPTOPP_SOURCE})
target_include_directories(qorc_cryptopp SYSTEM PUBLIC ${QORC_DEBIAN_SOURCES}/include)
target_compile_definitions(qorc_cryptopp PUBLIC CRYPTOPP_DISABLE_ASM)
target_compile_options(qorc_cryptopp PRIVATE -O2 -w)
set_target_properties(qorc_cryptopp PROPERTIES POSITION_INDEPENDENT_CODE OFF CXX_VISIBILITY_PRESET default)

# The Win32 libraries the seam calls beyond kernel32: shlwapi (path display),
# mpr (network names), advapi32 (user name), userenv.
set(QORC_DEPENDENCIES qorc_cryptopp qorc_libdeflate ZLIB::ZLIB shlwapi mpr advapi32)

# GoogleTest from the sources Debian's libgtest-dev installs.
if(QORC_TESTS)
  set(gtest_force_shared_crt ON CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/_googletest EXCLUDE_FROM_ALL)
  if(NOT TARGET GTest::gtest)
    add_library(GTest::gtest ALIAS gtest)
  endif()
endif()

# CLI11 is header-only; the tool sees Debian's headers through a folder of the
# build tree, never through /usr/include (which holds Linux's C headers).
if(NOT TARGET CLI11::CLI11)
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/_cli11)
  file(CREATE_LINK /usr/include/CLI ${CMAKE_BINARY_DIR}/_cli11/CLI SYMBOLIC)
  add_library(CLI11::CLI11 INTERFACE IMPORTED)
  target_include_directories(CLI11::CLI11 SYSTEM INTERFACE ${CMAKE_BINARY_DIR}/_cli11)
endif()
