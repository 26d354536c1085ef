// Firebird database files: creation and removal through the client library,
// which SOCI does not offer.
#include <ibase.h>

#include <string>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/error.h"

namespace kvc::db {
namespace {

std::string StatusText(const ISC_STATUS* status) {
  std::string out;
  char buf[512];
  const ISC_STATUS* p = status;
  while (fb_interpret(buf, sizeof buf, &p)) {
    if (!out.empty()) out += "; ";
    out += buf;
  }
  return out;
}

}  // namespace

void CreateFirebirdDatabase(const std::string& location, const std::string& user,
                            const std::string& password) {
  std::string sql = "create database '" + location + "' user '" + user + "'";
  if (!password.empty()) sql += " password '" + password + "'";
  sql += " page_size 8192 default character set UTF8";
  ISC_STATUS_ARRAY status;
  isc_db_handle db = 0;
  isc_tr_handle tr = 0;
  if (isc_dsql_execute_immediate(status, &db, &tr, 0, sql.c_str(), SQL_DIALECT_V6, nullptr))
    throw DatabaseError(StatusText(status), "create database '" + location + "'");
  isc_detach_database(status, &db);
}

void DropFirebirdDatabase(const std::string& location, const std::string& user,
                          const std::string& password) {
  // Database parameter block: version, user name, password.
  std::string dpb;
  dpb += static_cast<char>(isc_dpb_version1);
  dpb += static_cast<char>(isc_dpb_user_name);
  dpb += static_cast<char>(user.size());
  dpb += user;
  if (!password.empty()) {
    dpb += static_cast<char>(isc_dpb_password);
    dpb += static_cast<char>(password.size());
    dpb += password;
  }
  ISC_STATUS_ARRAY status;
  isc_db_handle db = 0;
  if (isc_attach_database(status, 0, location.c_str(), &db, static_cast<short>(dpb.size()),
                          dpb.data()))
    throw DatabaseError(StatusText(status), "drop database '" + location + "'");
  if (isc_drop_database(status, &db))
    throw DatabaseError(StatusText(status), "drop database '" + location + "'");
}

void ShutdownFirebirdClient() { fb_shutdown(0, fb_shutrsn_app_stopped); }

}  // namespace kvc::db
