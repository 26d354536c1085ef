// What SOCI does not offer for Firebird, done through the client library:
// creating and removing database files, and transactions in read-committed
// isolation.
//
// SOCI's Firebird backend starts every transaction with the client
// library's default parameters, which give a snapshot (concurrency)
// transaction, and has no option for another isolation. So the transaction
// is started here, through the client library, in the handle that the
// backend then uses for every statement, commit and rollback. SOCI 4.0 keeps
// that handle in a private member declared right after the public database
// handle (both of the client library's handle type), and its library exports
// no function that reaches it. The handle is found there, and
// CheckFirebirdTransactionHandle proves it with the client library once per
// connection before anything relies on it.
#include <ibase.h>
#include <soci/firebird/soci-firebird.h>
#include <soci/soci.h>

#include <string>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"

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

soci::firebird_session_backend& Backend(soci::session& session) {
  // Only called for Firebird sessions, whose backend is this one.
  return *static_cast<soci::firebird_session_backend*>(session.get_backend());
}

isc_tr_handle* TransactionHandle(soci::session& session) {
  char* database = reinterpret_cast<char*>(&Backend(session).dbhp_);
  return reinterpret_cast<isc_tr_handle*>(database + sizeof(isc_db_handle));
}

}  // namespace

void CreateFirebirdDatabase(const std::string& location, const std::string& user,
                            const std::string& password) {
  // The values are the caller's, copied as they stand (the statement takes
  // no parameters).
  std::string sql =
      "create database " + sql::QuotedAsIs(location) + " user " + sql::QuotedAsIs(user);
  if (!password.empty()) sql += " password " + sql::QuotedAsIs(password);
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

void CheckFirebirdTransactionHandle(soci::session& session) {
  // A statement makes the backend start its transaction; the handle found
  // must then name a live transaction of the client library.
  int one = 0;
  session << "select 1 from rdb$database", soci::into(one);
  isc_tr_handle* handle = TransactionHandle(session);
  ISC_STATUS_ARRAY status;
  const char items[] = {isc_info_tra_id};
  char answer[32];
  const bool found = *handle != 0 && isc_transaction_info(status, handle, sizeof items, items,
                                                          sizeof answer, answer) == 0;
  session.commit();
  if (!found)
    throw DatabaseError(
        "the Firebird transaction handle of the SOCI backend was not found where this build "
        "expects it (is the SOCI version other than 4.0?)",
        "connect");
}

void BeginFirebirdReadCommitted(soci::session& session) {
  isc_tr_handle* handle = TransactionHandle(session);
  ISC_STATUS_ARRAY status;
  // The implicit transaction that statements outside a transaction use
  // holds no work of its own (each such statement is committed as it ends).
  if (*handle != 0 && isc_commit_transaction(status, handle))
    throw DatabaseError(StatusText(status), "begin");
  // Read committed with record versions: a statement reads the last
  // committed version of each row without waiting for writers; a write that
  // meets another's uncommitted change waits for it to end.
  static const char kParameters[] = {isc_tpb_version3, isc_tpb_write, isc_tpb_read_committed,
                                     isc_tpb_rec_version, isc_tpb_wait};
  if (isc_start_transaction(status, handle, 1, &Backend(session).dbhp_, sizeof kParameters,
                            kParameters))
    throw DatabaseError(StatusText(status), "begin");
}

}  // namespace kvc::db
