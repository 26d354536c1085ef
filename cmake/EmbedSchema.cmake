# Writes a C++ file holding the text of each schema/<server>.sql file as a raw
# string, looked up by server name through kvc::schema::EmbeddedDdl.
set(out "// Generated from schema/*.sql at build time; do not edit.\n#include <string_view>\nnamespace kvc::schema {\nstd::string_view EmbeddedDdl(std::string_view server) {\n")
foreach(name sqlite firebird postgresql sqlserver oracle)
  file(READ ${SCHEMA_DIR}/${name}.sql text)
  string(APPEND out "  if (server == \"${name}\") return R\"kvcddl(${text})kvcddl\";\n")
endforeach()
string(APPEND out "  return {};\n}\n}  // namespace kvc::schema\n")
file(WRITE ${OUTPUT} "${out}")
