# Installs the build into a scratch prefix, then configures, builds and runs
# the host project of this folder against it, and runs the installed kvctb
# (which must find the installed library by itself, with no library path set).
file(REMOVE_RECURSE ${WORK_DIR})
foreach(step
    "${CMAKE_COMMAND};--install;${BUILD_DIR};--prefix;${WORK_DIR}/prefix"
    "${CMAKE_COMMAND};-S;${SOURCE_DIR};-B;${WORK_DIR}/build;-G;Ninja;-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix"
    "${CMAKE_COMMAND};--build;${WORK_DIR}/build"
    "${WORK_DIR}/build/package_host"
    "env;--unset=LD_LIBRARY_PATH;${WORK_DIR}/prefix/bin/kvctb;--db;sqlite:${WORK_DIR}/installed.db;--quiet;init"
    "env;--unset=LD_LIBRARY_PATH;${WORK_DIR}/prefix/bin/kvctb;--db;sqlite:${WORK_DIR}/installed.db;--quiet;trial-balance;--month;202401")
  execute_process(COMMAND ${step} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "step failed (${rc}): ${step}\n${out}\n${err}")
  endif()
endforeach()
message(STATUS "${out}")
