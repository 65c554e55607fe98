# Debian packages, made by CPack's DEB generator (scripts/package.sh):
#   libqorc0     the shared library
#   libqorc-dev  headers, the CMake package, the pkg-config file and the libqorc.so link
#   qor          the command-line tool, its manual page and its bash completion
# Each install() of the project names its component: runtime, development or tool.

set(QORC_DEB_MAINTAINER "The qorc developers <maintainers@users.noreply.c-seed-36c45c3e.example>")
set(QORC_DEB_RELEASE 1)
set(QORC_DEB_VERSION ${PROJECT_VERSION}-${QORC_DEB_RELEASE})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qorc)
set(CPACK_PACKAGE_VENDOR "The qorc developers")
set(CPACK_PACKAGE_CONTACT ${QORC_DEB_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tool)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${QORC_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${QORC_DEB_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SOURCE qorc)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Depends: from what the binaries link (dpkg-shlibdeps); libqorc0 says which
# versions satisfy programs linked against it.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# qor links libqorc.so.0 from the package beside it: dpkg-shlibdeps finds it in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqorc0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/use-ldconfig-trigger.cmake)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "foundation class library for engineering applications
qorc is a C++17 foundation class library that host applications load as a
shared library: wide-character strings, characters, logical values and dates;
one pending-error model; files with their own text conventions and a
block-compressed format; files inside compound documents; installation roots
and paths; lock files for shared documents; directory scans; settings keys;
serial instruments; memory services; mathematics, checksums and RSA.
.
This package contains the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqorc-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqorc0 (= ${QORC_DEB_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "foundation class library for engineering applications (development files)
qorc is a C++17 foundation class library that host applications load as a
shared library: strings, errors, files, paths, dates, settings, serial lines
and numerics.
.
This package contains the headers (include <qorc/qorc.h>), the CMake package
(find_package(qorc) gives the target qorc::qorc) and the pkg-config file
(pkg-config --cflags --libs qorc) needed to build programs that use it.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME qor)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
# dpkg-shlibdeps takes the library qor finds in the build tree for a private one: the
# dependency on its package is stated here, and joined to the computed ones.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libqorc0 (>= ${QORC_DEB_VERSION})")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "command-line tool for the files and services of the qorc library
qor works with the files of the qorc library from the shell: it packs,
unpacks, reads in place and checks the library's block-compressed files,
shields data as printable text, computes CRC-32 and Adler-32 checksums, shows
and cleans the lock files of shared documents, lists, exports and imports
settings keys, reads and writes compound documents, talks to serial
instruments and makes textbook RSA keys.")

# Each package carries the copyright file and the changelog that Debian's
# policy asks for, in /usr/share/doc/<package>.
configure_file(cmake/debian/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9nc ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian
  OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/debian/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endforeach()

include(CPack)
