// Creation of the accounting schema in an empty database, from the DDL file
// of the connection's server compiled into the library.
#ifndef KVC_DB_SCHEMA_H_
#define KVC_DB_SCHEMA_H_

#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/connection.h"

namespace kvc::db {

// The DDL text of a server's schema file ("sqlite", "firebird", "postgresql",
// "sqlserver", "oracle"); empty for an unknown name.
KVC_API std::string_view SchemaDdl(std::string_view server);

// The statements of a DDL text: split at each ';' that ends a line, with
// comment lines and blank lines dropped.
KVC_API std::vector<std::string> SplitDdl(std::string_view ddl);

// Creates every table, index and the structure-version row of the schema in
// the connection's database, one statement at a time, each committed on its
// own. REQUIRES: the database holds none of the tables. Throws DatabaseError
// naming the statement that failed.
KVC_API void CreateSchema(Connection& connection);

// True when the structure-version table can be read.
KVC_API bool SchemaExists(Connection& connection);

// Every table of the schema, in creation order.
KVC_API std::vector<std::string> SchemaTables();

}  // namespace kvc::db

namespace kvc::schema {
KVC_API std::string_view EmbeddedDdl(std::string_view server);
}

#endif  // KVC_DB_SCHEMA_H_
