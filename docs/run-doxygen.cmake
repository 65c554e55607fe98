# Runs Doxygen on the configured Doxyfile. A run with warnings fails and leaves
# no reference behind, so that the next build runs it again instead of taking
# the incomplete output for an up-to-date one.
execute_process(COMMAND ${DOXYGEN} Doxyfile RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  file(REMOVE_RECURSE html)
  message(FATAL_ERROR "Doxygen found undocumented or badly documented items in the public headers (above)")
endif()
