# Installs the build into a scratch prefix, then configures, builds and runs
# the host project of this folder against it, and runs the installed kvctb
# (which must run by itself, with no library path set). Then checks what the
# installed tree shows a host: only the public headers, and a library that
# exports the module's API and hides its internals.
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

# Internal headers stay out of the installed tree.
foreach(internal accounting/db/statement_shape.h accounting/db/filter.h
    accounting/db/client_dataset_impl.h accounting/balances/saldo_filtros.h
    accounting/carryforward/saldo_anterior_comum.h accounting/services/zorutils.h)
  if(EXISTS ${WORK_DIR}/prefix/include/KVContabilidade01/${internal})
    message(FATAL_ERROR "an internal header was installed: ${internal}")
  endif()
endforeach()

# The dynamic symbol table: the module's class and C entry points are there,
# an internal function (the statement-shape scanner) is not.
file(GLOB library ${WORK_DIR}/prefix/lib*/libKVContabilidade01.so
  ${WORK_DIR}/prefix/lib*/*/libKVContabilidade01.so)
list(GET library 0 library)
execute_process(COMMAND nm -D -C --defined-only ${library} OUTPUT_VARIABLE symbols
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "nm failed on ${library}")
endif()
foreach(exported "KVContabilidade01_Create" "kvc::TddmContabilidadeBD::IniciaTransacao()"
    "kvc::db::Connect(")
  string(FIND "${symbols}" "${exported}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${library} does not export ${exported}")
  endif()
endforeach()
foreach(hidden "kvc::db::ShapeStatement(" "kvc::db::ToPositional(")
  string(FIND "${symbols}" "${hidden}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "${library} exports the internal ${hidden}")
  endif()
endforeach()
