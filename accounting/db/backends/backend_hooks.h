// The few places where the SOCI connection needs a backend's own handle.
#ifndef KVC_DB_BACKENDS_BACKEND_HOOKS_H_
#define KVC_DB_BACKENDS_BACKEND_HOOKS_H_

#include <cstddef>
#include <string>
#include <vector>

namespace soci {
class session;
class statement;
}  // namespace soci

namespace kvc::db {

// For a prepared SQLite statement: true for each result column that has no
// declared type (an expression), whose values SOCI reads as text.
std::vector<bool> SqliteExpressionColumns(soci::statement& st, size_t columns);

// Creates an empty Firebird database through the client library
// ("HOST:/path/file.fdb" on a server, or a local path for the embedded
// engine), with UTF8 as default character set. Throws DatabaseError with the
// server's message.
void CreateFirebirdDatabase(const std::string& location, const std::string& user,
                            const std::string& password);

// Drops a Firebird database (connects and removes the file). Throws
// DatabaseError with the server's message.
void DropFirebirdDatabase(const std::string& location, const std::string& user,
                          const std::string& password);

// Proves, once per Firebird session, that the backend's transaction handle
// is reachable for BeginFirebirdReadCommitted; throws DatabaseError if not.
void CheckFirebirdTransactionHandle(soci::session& session);

// Ends the implicit transaction of a Firebird session and begins a
// read-committed one (record version, wait) in its place; the session's
// commit and rollback end it. Throws DatabaseError with the server's message.
void BeginFirebirdReadCommitted(soci::session& session);

// Stops the Firebird client library's own threads and closes its
// attachments; a process calls it before exiting once it is done with
// Firebird, so that nothing of the client runs while the process ends.
void ShutdownFirebirdClient();

}  // namespace kvc::db

#endif  // KVC_DB_BACKENDS_BACKEND_HOOKS_H_
