# Files made by the Windows build and by the Linux build are interchangeable:
# qor.exe (under Wine) and qor give the same bytes and exit codes for pack,
# unpack, check, cat, crc and shield, each reads what the other wrote, and a
# TEXT file written on one system reads back the same lines on the other.
# Run by ctest in the Windows build; the Linux programs come from the Linux
# build of the same tree (LINUX_QOR, LINUX_TEXT_LINES).
#   cmake -DLINUX_QOR=... -DLINUX_TEXT_LINES=... -DWINDOWS_QOR=... -DWINDOWS_TEXT_LINES=...
#         -DWINE=... -DWORK_DIR=... -P run.cmake
foreach(program LINUX_QOR LINUX_TEXT_LINES)
  if(NOT EXISTS "${${program}}")
    message("SKIPPED: the Linux build's ${${program}} is missing (build the default preset first)")
    return()
  endif()
endforeach()
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(failures 0)

function(fail text)
  message(SEND_ERROR "${text}")
endfunction()

# Runs one system's program with its standard output in OUT; sets CODE.
function(run_on system out code)
  if(system STREQUAL "linux")
    set(command ${LINUX_QOR})
  else()
    set(command ${WINE} ${WINDOWS_QOR})
  endif()
  execute_process(COMMAND ${command} ${ARGN} WORKING_DIRECTORY ${WORK_DIR}
    OUTPUT_FILE ${WORK_DIR}/${out} ERROR_VARIABLE errors RESULT_VARIABLE result)
  set(${code} ${result} PARENT_SCOPE)
endfunction()

# Runs qor with the same arguments on both systems (the file names given with
# "@" get the system's suffix); both must end with `expected` (SAME: with one
# exit code) and print the same bytes.
function(both expected)
  set(linux_args)
  set(windows_args)
  foreach(arg ${ARGN})
    if(arg MATCHES "^@(.*)$")
      list(APPEND linux_args ${CMAKE_MATCH_1}.linux)
      list(APPEND windows_args ${CMAKE_MATCH_1}.windows)
    else()
      list(APPEND linux_args ${arg})
      list(APPEND windows_args ${arg})
    endif()
  endforeach()
  run_on(linux stdout.linux linux_code ${linux_args})
  run_on(windows stdout.windows windows_code ${windows_args})
  if(expected STREQUAL "SAME")
    set(expected ${linux_code})
  endif()
  if(NOT linux_code STREQUAL "${expected}" OR NOT windows_code STREQUAL "${expected}")
    fail("qor ${ARGN}: exit codes ${linux_code} (Linux) and ${windows_code} (Windows), ${expected} expected")
  endif()
  same_bytes(stdout.linux stdout.windows "standard output of qor ${ARGN}")
endfunction()

function(same_bytes a b what)
  file(SHA256 ${WORK_DIR}/${a} hash_a)
  file(SHA256 ${WORK_DIR}/${b} hash_b)
  if(NOT hash_a STREQUAL hash_b)
    fail("${what}: ${a} and ${b} differ")
  endif()
endfunction()

# Inputs: random bytes past several blocks, text, an empty file.
execute_process(COMMAND head -c 700000 /dev/urandom OUTPUT_FILE ${WORK_DIR}/data.bin)
set(text "")
foreach(i RANGE 1 20000)
  string(APPEND text "line ${i} of the sample text\n")
endforeach()
file(WRITE ${WORK_DIR}/text.txt "${text}")
file(WRITE ${WORK_DIR}/empty.bin "")

# Compressed files are byte for byte the same, and each system unpacks the other's.
foreach(input data.bin text.txt empty.bin)
  both(0 pack ${input} @${input}.qz)
  same_bytes(${input}.qz.linux ${input}.qz.windows "pack ${input}")
  run_on(linux stdout.linux code unpack ${input}.qz.windows ${input}.from-windows)
  run_on(windows stdout.windows code unpack ${input}.qz.linux ${input}.from-linux)
  same_bytes(${input} ${input}.from-windows "Linux unpacking the Windows file of ${input}")
  same_bytes(${input} ${input}.from-linux "Windows unpacking the Linux file of ${input}")
  both(0 check ${input}.qz.linux)
  both(0 cat ${input}.qz.windows)
  both(0 crc ${input} ${input}.qz.linux)
endforeach()
# A damaged file: the same refusal on both systems.
file(READ ${WORK_DIR}/text.txt.qz.linux packed HEX)
string(SUBSTRING "${packed}" 0 400 head)
string(SUBSTRING "${packed}" 402 -1 tail)
string(APPEND head "ff${tail}")
file(WRITE ${WORK_DIR}/damaged.qz "")
string(LENGTH "${head}" hex_length)
math(EXPR byte_count "${hex_length} / 2")
file(WRITE ${WORK_DIR}/damaged.hex "${head}")
execute_process(COMMAND xxd -r -p ${WORK_DIR}/damaged.hex ${WORK_DIR}/damaged.qz)
both(1 check damaged.qz)
both(SAME cat damaged.qz)
both(2 pack)

# Shielded files alike, and each system unshields the other's.
both(0 shield data.bin @data.shd)
same_bytes(data.shd.linux data.shd.windows "shield data.bin")
run_on(linux stdout.linux code unshield data.shd.windows data.unshielded.linux)
run_on(windows stdout.windows code unshield data.shd.linux data.unshielded.windows)
same_bytes(data.bin data.unshielded.linux "Linux unshielding the Windows file")
same_bytes(data.bin data.unshielded.windows "Windows unshielding the Linux file")

# TEXT files: CR LF on Windows, LF on Linux, the same lines read on both.
# (A command line cannot carry an empty argument from a CMake list.)
set(lines "first line" "tab\there" "  spaced  " "last")
execute_process(COMMAND ${LINUX_TEXT_LINES} write lines.linux ${lines} WORKING_DIRECTORY ${WORK_DIR}
  RESULT_VARIABLE linux_code)
execute_process(COMMAND ${WINE} ${WINDOWS_TEXT_LINES} write lines.windows ${lines} WORKING_DIRECTORY ${WORK_DIR}
  RESULT_VARIABLE windows_code)
if(NOT linux_code EQUAL 0 OR NOT windows_code EQUAL 0)
  fail("writing TEXT files: exit codes ${linux_code} (Linux) and ${windows_code} (Windows)")
endif()
file(READ ${WORK_DIR}/lines.linux linux_bytes HEX)
file(READ ${WORK_DIR}/lines.windows windows_bytes HEX)
string(REPLACE "0a" "0d0a" expected_windows "${linux_bytes}")
if(NOT windows_bytes STREQUAL expected_windows OR linux_bytes MATCHES "0d")
  fail("TEXT files: Linux wrote ${linux_bytes}, Windows wrote ${windows_bytes}")
endif()
string(REPLACE ";" "\n" expected_lines "${lines}")
foreach(reader linux windows)
  foreach(written linux windows)
    if(reader STREQUAL "linux")
      set(command ${LINUX_TEXT_LINES})
    else()
      set(command ${WINE} ${WINDOWS_TEXT_LINES})
    endif()
    execute_process(COMMAND ${command} read lines.${written} WORKING_DIRECTORY ${WORK_DIR}
      OUTPUT_VARIABLE read RESULT_VARIABLE code)
    if(NOT code EQUAL 0 OR NOT read STREQUAL "${expected_lines}\n")
      fail("${reader} reading the ${written} TEXT file: exit code ${code}, lines [${read}]")
    endif()
  endforeach()
endforeach()
