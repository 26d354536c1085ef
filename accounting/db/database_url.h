// The reading of the database URLs that Connect accepts (connection.h): the
// SOCI connection string to open, the text that names the database in
// messages, and the server kind. Nothing is opened here.
#ifndef KVC_DB_DATABASE_URL_H_
#define KVC_DB_DATABASE_URL_H_

#include <string>
#include <string_view>

#include "accounting/db/dialect.h"

namespace kvc::db {

struct DatabaseUrl {
  std::string soci;     // the SOCI connection string
  std::string display;  // the URL without its password, for messages
  ServerKind kind = ServerKind::kSqlite;
  // Firebird only: where CreateFirebirdDatabase makes the database
  // ("HOST[/PORT]:PATH"), and the credentials to make it with.
  std::string firebird_location;
  std::string user;
  std::string password;
};

// Reads `url` as Connect does; a password missing from the URL is taken from
// `password` when not empty. Throws DatabaseError, naming the URL without its
// password, for a URL of no accepted form.
DatabaseUrl ParseDatabaseUrl(std::string_view url, std::string_view password = {});

}  // namespace kvc::db

#endif  // KVC_DB_DATABASE_URL_H_
