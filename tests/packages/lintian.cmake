# Makes the three Debian packages from a build tree of their own (installed under
# /usr, as scripts/package.sh makes them) and checks them with lintian, which must
# report no error. The code is compiled without optimisation, which is quickest:
# what lintian judges here is the packaging, not the machine code (package.sh
# builds the real packages with Debian's flags). Arguments: SOURCE_DIR,
# WORK_DIR, GENERATOR.
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR} -G ${GENERATOR}
    -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O0 -DCMAKE_C_FLAGS=-O0 -DCMAKE_INSTALL_PREFIX=/usr
    -DQORC_TESTS=OFF -DQORC_BENCH=OFF -DQORC_DOCS=OFF
  OUTPUT_QUIET RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "configuring the package build failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR} --target qorc qor qor_docs RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "the package build failed")
endif()
execute_process(COMMAND cpack -G DEB WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "cpack failed")
endif()
foreach(package libqorc0 libqorc-dev qor)
  file(GLOB deb ${WORK_DIR}/${package}_*.deb)
  if(NOT deb)
    message(FATAL_ERROR "cpack made no ${package} package")
  endif()
  list(APPEND debs ${deb})
endforeach()
execute_process(COMMAND lintian --fail-on error --tag-display-limit 0 ${debs} RESULT_VARIABLE status)
if(status)
  message(FATAL_ERROR "lintian reports errors in the packages (above)")
endif()
# The packages are what the tree says: each holds its own part and the parts Debian asks for.
foreach(check "libqorc0:usr/lib/[^ ]*/libqorc\\.so\\.0 " "libqorc0:usr/share/doc/libqorc0/copyright"
    "libqorc-dev:usr/include/qorc/qorc\\.h" "libqorc-dev:usr/lib/[^ ]*/pkgconfig/qorc\\.pc"
    "libqorc-dev:usr/lib/[^ ]*/cmake/qorc/qorcConfig\\.cmake" "libqorc-dev:usr/lib/[^ ]*/libqorc\\.so "
    "qor:usr/bin/qor" "qor:usr/share/man/man1/qor\\.1\\.gz" "qor:usr/share/bash-completion/completions/qor"
    "qor:usr/share/doc/qor/changelog\\.Debian\\.gz")
  string(REPLACE ":" ";" parts "${check}")
  list(GET parts 0 package)
  list(GET parts 1 pattern)
  file(GLOB deb ${WORK_DIR}/${package}_*.deb)
  execute_process(COMMAND dpkg-deb --contents ${deb} OUTPUT_VARIABLE contents)
  if(NOT contents MATCHES "${pattern}")
    message(FATAL_ERROR "${package} lacks ${pattern}:\n${contents}")
  endif()
endforeach()
file(GLOB qor_deb ${WORK_DIR}/qor_*.deb)
execute_process(COMMAND dpkg-deb --field ${qor_deb} Depends OUTPUT_VARIABLE depends)
if(NOT depends MATCHES "libqorc0 \\(>= " OR NOT depends MATCHES "libstdc\\+\\+6")
  message(FATAL_ERROR "qor's Depends lacks the library or what it links: ${depends}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
