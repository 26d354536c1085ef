// DatabaseError: the one exception type of the database-access layer. It
// carries the statement that failed and the server's own message.
#ifndef KVC_DB_ERROR_H_
#define KVC_DB_ERROR_H_

#include <stdexcept>
#include <string>

#include "accounting/db/api.h"

namespace kvc::db {

class KVC_API DatabaseError : public std::runtime_error {
 public:
  DatabaseError(std::string server_message, std::string sql)
      : std::runtime_error(server_message),
        server_message_(std::move(server_message)),
        sql_(std::move(sql)) {}

  // The database's own message (the EMESSAGE of error logs).
  const std::string& ServerMessage() const { return server_message_; }
  // The statement as it was sent, after rewriting.
  const std::string& Sql() const { return sql_; }

 private:
  std::string server_message_;
  std::string sql_;
};

}  // namespace kvc::db

#endif  // KVC_DB_ERROR_H_
