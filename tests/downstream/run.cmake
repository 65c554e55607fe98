# Installs the library into a private prefix, then builds and runs a small host
# against it twice: through find_package(qorc) and through pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BINARY_DIR} --prefix ${prefix}
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "install failed")
endif()

# The installed tool runs from the prefix and finds the installed library.
file(WRITE ${WORK_DIR}/hello.txt "hello")
execute_process(COMMAND ${prefix}/bin/qor crc ${WORK_DIR}/hello.txt RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(rc OR NOT out MATCHES "^3610a686  ")
  message(FATAL_ERROR "installed qor failed: ${out}")
endif()

execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE_DIR}/tests/downstream/project
    -B ${WORK_DIR}/build -G Ninja -DCMAKE_PREFIX_PATH=${prefix}
  RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "configure against the installed package failed")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${WORK_DIR}/build RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "build against the installed package failed")
endif()
execute_process(COMMAND ${WORK_DIR}/build/downstream_host RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(rc OR NOT out MATCHES "downstream ok")
  message(FATAL_ERROR "downstream host failed: ${out}")
endif()

find_program(PKG_CONFIG pkg-config REQUIRED)
find_program(CXX NAMES c++ g++ REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig:${prefix}/lib/x86_64-linux-gnu/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs qorc OUTPUT_VARIABLE flags
  RESULT_VARIABLE rc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(rc)
  message(FATAL_ERROR "pkg-config does not know qorc")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
execute_process(COMMAND ${CXX} -std=c++17 ${SOURCE_DIR}/tests/downstream/project/main.cpp
    ${flags} -o ${WORK_DIR}/pc_host RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "build through pkg-config failed")
endif()
file(GLOB libdirs ${prefix}/lib ${prefix}/lib/*)
string(REPLACE ";" ":" ldpath "${libdirs}")
set(ENV{LD_LIBRARY_PATH} ${ldpath})
execute_process(COMMAND ${WORK_DIR}/pc_host RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(rc OR NOT out MATCHES "downstream ok")
  message(FATAL_ERROR "pkg-config host failed: ${out}")
endif()
