// Test databases: a fresh SQLite file per test, and a Firebird server
// database per test process (emptied before each test) when the environment
// names a server. Behaviour tests are parameterised over both.
#ifndef KVC_TESTS_SUPPORT_TEST_DB_H_
#define KVC_TESTS_SUPPORT_TEST_DB_H_

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/db/trace.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc::testing {

// "sqlite", "firebird", "postgresql" (a PostgreSQL server) or "odbc" (a
// PostgreSQL server through its ODBC driver).
using BackendName = std::string;

// The backends every behaviour test runs on.
std::vector<BackendName> AllBackends();

// Opens a connection to an empty database with the schema for `backend`.
// Returns null when the backend is not configured (the test then skips);
// with KVC_REQUIRE_SERVERS=1 in the environment a missing server fails.
std::unique_ptr<db::Connection> OpenTestDatabase(const BackendName& backend);

// Runs one query and returns the first column of every row as text.
std::vector<std::string> Column(db::Connection& c, const std::string& sql);
// The single value of a query.
db::Value Scalar(db::Connection& c, const std::string& sql);
long long CountRows(db::Connection& c, const std::string& table);

// Every row of `sql`, each value as text: null as "NULL", a decimal value
// with two decimals, anything else as it reads.
using Linha = std::vector<std::string>;
std::vector<Linha> Linhas(db::Connection& c, const std::string& sql);

// Empties every table of the schema and puts back the structure-version
// row, as a new test database has it.
void EmptyAllTables(db::Connection& c);

// Every row of every table of the schema, each table's rows sorted: a dump
// to compare before and after an operation.
using TabelasDoBanco = std::map<std::string, std::vector<Linha>>;
TabelasDoBanco TodasAsTabelas(db::Connection& c);

// A statement as the trace recorded it. Compared with a text, it is equal
// when the texts are; in the SQL Server run (see SqlServerRun) it is equal
// when both read the same once the SQL Server branch of the rewriting step
// has done its part: line feeds as blanks, no leading or trailing blanks.
// So the exact statement texts that the tests assert hold for that run too.
class SqlEnviado : public std::string {
 public:
  using std::string::string;
  explicit SqlEnviado(std::string texto) : std::string(std::move(texto)) {}
};
bool operator==(const SqlEnviado& a, const SqlEnviado& b);
bool operator==(const SqlEnviado& a, const std::string& b);
bool operator==(const SqlEnviado& a, const char* b);
bool operator==(const std::vector<SqlEnviado>& a, const std::vector<std::string>& b);
void PrintTo(const SqlEnviado& sql, std::ostream* os);

// Whether the current test runs under the server-type name "SQLSERVER".
bool SqlServerRun();
// Whether `texto` (a statement sent) begins with `inicio`, compared as
// SqlEnviado compares.
bool ComecaCom(const std::string& texto, const std::string& inicio);
// A fragment of a statement as the run sends it: in the SQL Server run its
// line feeds are blanks.
std::string Fragmento(std::string fragmento);
// A statement with placeholders as the run sends it: in the SQL Server run,
// where a statement with a sub-query gets its values written in, each
// ":NAME" of `valores` becomes "/*NAME*/'value'".
std::string ComParametros(std::string texto,
                          const std::vector<std::pair<std::string, std::string>>& valores);

// The statement trace of the fixtures: TracingConnection whose Statements()
// compare as SqlEnviado.
class TraceDeTeste : public db::TracingConnection {
 public:
  using db::TracingConnection::TracingConnection;
  std::vector<SqlEnviado> Statements() const;
};

// A fixture with a database, the statement trace over it, and a data module
// bound to it as a host binds it (TSimpleHostContext, handle 1).
class ModuleTest : public ::testing::TestWithParam<BackendName> {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Binds a module (created here) to the traced connection.
  void Bind();

  std::unique_ptr<db::Connection> raw_;
  std::unique_ptr<TraceDeTeste> trace_;
  TSimpleHostContext host_;
  std::unique_ptr<TddmContabilidadeBD> dm_;
};

// Names the parameterised instances after the backend.
std::string BackendTestName(const ::testing::TestParamInfo<BackendName>& info);

}  // namespace kvc::testing

#define KVC_INSTANTIATE_BACKENDS(Suite)                                                 \
  INSTANTIATE_TEST_SUITE_P(Db, Suite, ::testing::ValuesIn(kvc::testing::AllBackends()), \
                           kvc::testing::BackendTestName)

#endif  // KVC_TESTS_SUPPORT_TEST_DB_H_
