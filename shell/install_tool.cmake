# Install step after the files: registers the tool in the registry file of
# $DESTDIR$MARLOWEN_ROOT and creates the report folder's parents there. The
# registered path is the tool's final one, without DESTDIR.
get_filename_component(tool "${CMAKE_INSTALL_PREFIX}/${ML_TOOL_INSTALL_DIR}/MLCrashReporter"
                       ABSOLUTE)
set(root "$ENV{DESTDIR}$ENV{MARLOWEN_ROOT}")
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env "MARLOWEN_ROOT=${root}" "${ML_INSTALL_REGISTRATION}" "${tool}"
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "Registering ${tool} failed")
endif()
