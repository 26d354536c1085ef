// Test databases on SQLite and on a Firebird server.
#include "support/test_db.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/dialect.h"
#include "accounting/db/schema.h"
#include "accounting/db/sql_format.h"
#include "support/firebird_target.h"

namespace kvc::testing {
namespace {

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

// The per-process Firebird database, created with its schema on first use
// and dropped at exit.
class FirebirdDatabase {
 public:
  static FirebirdDatabase* Get() {
    static FirebirdDatabase* instance = []() -> FirebirdDatabase* {
      FirebirdTarget t;
      if (!ParseFirebirdTarget(t)) return nullptr;
      return new FirebirdDatabase(t);
    }();
    return instance;
  }

  std::unique_ptr<db::Connection> Open() {
    return db::Connect("firebird://" + target_.user + ":" + target_.password + "@" + target_.host +
                       "/" + path_);
  }

 private:
  explicit FirebirdDatabase(const FirebirdTarget& t) : target_(t) {
    path_ = t.directory + "/kvc_test_" + std::to_string(getpid()) + ".fdb";
    location_ = t.host + ":" + path_;
    try {
      db::DropFirebirdDatabase(location_, t.user, t.password);
    } catch (...) {
    }
    db::CreateFirebirdDatabase(location_, t.user, t.password);
    auto c = Open();
    db::CreateSchema(*c);
    std::atexit([] { Get()->Drop(); });
  }

  // Drops the database and stops the client's threads before the process
  // (and the leak checker, in sanitizer builds) winds down.
  void Drop() {
    try {
      db::DropFirebirdDatabase(location_, target_.user, target_.password);
    } catch (...) {
    }
    db::ShutdownFirebirdClient();
  }

  FirebirdTarget target_;
  std::string path_;
  std::string location_;
};

void EmptyAllTables(db::Connection& c) {
  for (const std::string& table : db::SchemaTables()) c.Execute("delete from " + table, {});
  c.Execute("insert into GER_VERSAO_ESTRUTURA (VERSAO) values ('2.09')", {});
}

std::vector<std::string>& SqliteFiles() {
  static std::vector<std::string> files;
  return files;
}

}  // namespace

std::vector<BackendName> AllBackends() { return {"sqlite", "firebird"}; }

std::string BackendTestName(const ::testing::TestParamInfo<BackendName>& info) {
  return info.param == "sqlite" ? "Sqlite" : "Firebird";
}

std::unique_ptr<db::Connection> OpenTestDatabase(const BackendName& backend) {
  if (backend == "sqlite") {
    static std::atomic<int> counter{0};
    std::string path =
        (std::filesystem::temp_directory_path() /
         ("kvc_test_" + std::to_string(getpid()) + "_" + std::to_string(counter++) + ".db"))
            .string();
    std::filesystem::remove(path);
    auto c = db::Connect("sqlite:" + path);
    db::CreateSchema(*c);
    SqliteFiles().push_back(path);
    return c;
  }
  if (backend == "firebird") {
    FirebirdDatabase* fb = FirebirdDatabase::Get();
    if (!fb) return nullptr;
    auto c = fb->Open();
    EmptyAllTables(*c);
    return c;
  }
  return nullptr;
}

std::vector<std::string> Column(db::Connection& c, const std::string& sql) {
  std::vector<std::string> out;
  for (auto& row : c.Query(sql, {}).rows) out.push_back(row.at(0).AsString());
  return out;
}

db::Value Scalar(db::Connection& c, const std::string& sql) {
  auto rs = c.Query(sql, {});
  if (rs.rows.empty()) return db::Value();
  return rs.rows[0].at(0);
}

long long CountRows(db::Connection& c, const std::string& table) {
  return Scalar(c, "select count(*) N from " + table).AsInteger();
}

std::vector<Linha> Linhas(db::Connection& c, const std::string& sql) {
  std::vector<Linha> out;
  for (const auto& row : c.Query(sql, {}).rows) {
    Linha& linha = out.emplace_back();
    for (const db::Value& v : row)
      linha.push_back(v.IsNull() ? "NULL" : v.IsFloat() ? sql::Amount(v.AsFloat()) : v.AsString());
  }
  return out;
}

void ModuleTest::SetUp() {
  raw_ = OpenTestDatabase(GetParam());
  if (!raw_) {
    if (Env("KVC_REQUIRE_SERVERS") == "1")
      FAIL() << GetParam()
             << " is required (KVC_REQUIRE_SERVERS=1) but KVC_TEST_FIREBIRD is not set";
    GTEST_SKIP() << GetParam() << " not configured (set KVC_TEST_FIREBIRD)";
  }
  trace_ = std::make_unique<db::TracingConnection>(*raw_);
  host_.tipo_banco = std::string(raw_->dialect().TipoBanco());
}

void ModuleTest::Bind() {
  dm_ = std::make_unique<TddmContabilidadeBD>();
  dm_->AtualizaTAplicacao(host_, trace_.get(), 1);
  dm_->SetaSQLConnection();
}

void ModuleTest::TearDown() {
  if (dm_) {
    dm_->LimpaSQLConnection();
    dm_.reset();
  }
  trace_.reset();
  raw_.reset();
  for (auto& f : SqliteFiles()) std::filesystem::remove(f);
  SqliteFiles().clear();
}

}  // namespace kvc::testing
