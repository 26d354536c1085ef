// Regression, found by fuzz/cli_values_fuzz.cpp: the text that names an ODBC
// database in messages ("cannot connect to odbc:...") was cut before the
// password only where the connection string spelt "PWD=" in capitals. ODBC
// keywords ignore case, so "pwd=", "Pwd=" or "PASSWORD=" put the password
// into the message. The fuzzer's reproducer, minimised: "odbc:pWD=".
#include <gtest/gtest.h>

#include <string>

#include "accounting/db/connection.h"
#include "accounting/db/database_url.h"
#include "accounting/db/error.h"

namespace kvc::testing {
namespace {

TEST(SenhaOdbcNaMensagem, ReproducerOfTheFuzzer) {
  EXPECT_EQ(db::ParseDatabaseUrl("odbc:pWD=").display, "odbc:");
}

TEST(SenhaOdbcNaMensagem, NoSpellingOfThePasswordKeywordShowsThePassword) {
  for (const std::string key : {"PWD", "pwd", "Pwd", "PASSWORD", "Password", "pwd "}) {
    const db::DatabaseUrl url =
        db::ParseDatabaseUrl("odbc:DSN=contabil;UID=u;" + key + "=segredo;X=1");
    EXPECT_EQ(url.display, "odbc:DSN=contabil;UID=u;") << key;
    EXPECT_EQ(url.display.find("segredo"), std::string::npos) << key;
    // The driver still gets it.
    EXPECT_NE(url.soci.find(key + "=segredo"), std::string::npos) << key;
    EXPECT_EQ(url.kind, db::ServerKind::kSqlServer) << key;
  }
}

TEST(SenhaOdbcNaMensagem, TheMessageOfAFailedConnectionHoldsNoPassword) {
  try {
    db::Connect("odbc:DSN=kvc_no_such_dsn;uid=u;pwd=segredo");
    FAIL() << "connected to a data source that does not exist";
  } catch (const db::DatabaseError& e) {
    const std::string message = e.what();
    EXPECT_NE(message.find("odbc:DSN=kvc_no_such_dsn;uid=u;"), std::string::npos) << message;
    EXPECT_EQ(message.find("segredo"), std::string::npos) << message;
  }
}

}  // namespace
}  // namespace kvc::testing
