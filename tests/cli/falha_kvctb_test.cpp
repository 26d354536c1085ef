// kvctb post, chart-import and close-result --confirm with a failure at every
// statement they send, from the session's first read to the commit: each
// time the command exits 1 and every table of the database is as it was,
// except where the posting's documented rule swallows a refused
// division-row insert (the command then succeeds without that row). On
// SQLite, and on the servers of KVC_TEST_POSTGRESQL and KVC_TEST_FIREBIRD.
//
// The tool runs in this process so that the failures are injected through
// its session's statement trace.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/connection.h"
#include "accounting/db/provider.h"
#include "accounting/db/trace.h"
#include "cli/app.h"
#include "cli/kvctb_process.h"
#include "cli/session.h"
#include "support/firebird_target.h"
#include "support/postgresql_target.h"
#include "support/test_db.h"

namespace kvc::cli::testing {
namespace {

using kvc::testing::TabelasDoBanco;

constexpr char kInsertDivisao[] = "insert into ctb_lancamento_dividido";

// Runs kvctb in this process over the database `url` with `args` after the
// global options, calling `prepara` with the session's trace before its
// first statement.
int Kvctb(const std::string& url, const std::vector<std::string>& args,
          const std::function<void(db::TracingConnection&)>& prepara) {
  std::vector<std::string> todos = {"kvctb", "--db", url, "--quiet", "--format", "json"};
  todos.insert(todos.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& a : todos) argv.push_back(a.data());
  argv.push_back(nullptr);
  SetSessionTraceObserver(prepara);
  const int codigo = kvc::cli::RunKvctb(static_cast<int>(todos.size()), argv.data());
  SetSessionTraceObserver(nullptr);
  return codigo;
}

TabelasDoBanco Tabelas(const std::string& url) {
  auto c = db::Connect(url);
  return kvc::testing::TodasAsTabelas(*c);
}

// Every table's row count.
std::map<std::string, size_t> Contagens(const TabelasDoBanco& t) {
  std::map<std::string, size_t> n;
  for (const auto& [tabela, linhas] : t) n[tabela] = linhas.size();
  return n;
}

// Where each run starts: a directory for the command's input files and a
// database holding the books the command starts from.
class Fonte {
 public:
  virtual ~Fonte() = default;
  // The directory and database URL of run `k` of the command `nome`.
  virtual std::pair<std::string, std::string> Prepara(const std::string& nome, size_t k) = 0;
  // Told after each run whether the run left the tables as they started.
  virtual void Depois(bool intactas) { (void)intactas; }
};

// SQLite: a fresh copy of the demo company (demo.db) or of the small books
// (books.db) for every run.
class CopiaSqlite : public Fonte {
 public:
  explicit CopiaSqlite(bool demo) : demo_(demo) {}
  std::pair<std::string, std::string> Prepara(const std::string& nome, size_t k) override {
    const std::string nome_k = nome + "_" + std::to_string(k);
    const std::string dir = demo_ ? DirectoryWithDemo(nome_k) : DirectoryWithSmallBooks(nome_k);
    return {dir, "sqlite:" + dir + (demo_ ? "/demo.db" : "/books.db")};
  }

 private:
  bool demo_;
};

// A server: one schema (PostgreSQL) or database (Firebird) of this test
// process, loaded with the small books by kvctb itself, and loaded again
// only after a run that changed it (the uninterrupted run, or one whose
// refused statement the command survives).
class Servidor : public Fonte {
 public:
  // `recria` empties the schema or database and creates it anew.
  Servidor(std::string url, std::function<void()> recria)
      : url_(std::move(url)), recria_(std::move(recria)), dir_(NewDirectory("falha_servidor")) {}

  std::pair<std::string, std::string> Prepara(const std::string&, size_t) override {
    if (sujo_) {
      recria_();
      LoadSmallBooks(url_, dir_);
      sujo_ = false;
    }
    return {dir_, url_};
  }
  void Depois(bool intactas) override { sujo_ = !intactas; }

 private:
  std::string url_;
  std::function<void()> recria_;
  std::string dir_;
  bool sujo_ = true;
};

// `args` failing at each of its statements in turn, then at its commit.
// `comando` writes the command's input files into the directory it is given
// and returns the command's arguments.
using Comando = std::function<std::vector<std::string>(const std::string& dir)>;

void FalhaEmCada(const std::string& nome, const Comando& comando, Fonte& fonte) {
  // The uninterrupted run counts the statements and gives the tables the
  // command writes.
  auto [dir, url] = fonte.Prepara(nome, 0);
  std::vector<std::string> args = comando(dir);
  const TabelasDoBanco antes = Tabelas(url);
  size_t comandos = 0;
  ASSERT_EQ(Kvctb(url, args,
                  [&](db::TracingConnection& t) {
                    t.SetSink([&](const db::TracedStatement& s) {
                      if (s.kind == db::TracedStatement::Kind::kExecute ||
                          s.kind == db::TracedStatement::Kind::kQuery)
                        ++comandos;
                    });
                  }),
            0);
  const TabelasDoBanco completo = Tabelas(url);
  ASSERT_NE(completo, antes);
  ASSERT_GT(comandos, 5u);
  fonte.Depois(false);

  size_t engolidas = 0;
  for (size_t k = 1; k <= comandos + 1; ++k) {
    SCOPED_TRACE(nome + ": statement " + std::to_string(k) + " of " + std::to_string(comandos) +
                 (k > comandos ? " (the commit)" : "") + " fails");
    std::tie(dir, url) = fonte.Prepara(nome, k);
    args = comando(dir);
    // The sink sees statements only: a refused commit is named here.
    std::string falhou = k > comandos ? "commit" : "";
    const int codigo = Kvctb(url, args, [&](db::TracingConnection& t) {
      if (k <= comandos)
        t.FailNth(k, "falha injetada");
      else
        t.FailCommit(true, "commit recusado");
      t.SetSink([&](const db::TracedStatement& s) {
        if (s.failed) falhou = s.kind == db::TracedStatement::Kind::kCommit ? "commit" : s.sql;
      });
    });
    const TabelasDoBanco depois = Tabelas(url);
    fonte.Depois(depois == antes);
    ASSERT_FALSE(falhou.empty());
    if (codigo == 0) {
      // Only the posting's division-row insert may be refused without
      // failing the command.
      ASSERT_TRUE(kvc::testing::ComecaCom(falhou, kInsertDivisao)) << falhou;
      auto esperado = Contagens(completo);
      --esperado["CTB_LANCAMENTO_DIVIDIDO"];
      EXPECT_EQ(Contagens(depois), esperado);
      ++engolidas;
    } else {
      EXPECT_EQ(codigo, 1);
      EXPECT_EQ(depois, antes) << falhou;
    }
  }
  if (nome == "post") {
    EXPECT_GT(engolidas, 0u);
  }
}

// The commands, each writing its input files into `dir`.
std::vector<std::string> Post(const std::string& dir) {
  WriteFile(dir + "/entries.txt", TwoRecords());
  return {"post", dir + "/entries.txt", "--document", "4711"};
}

std::vector<std::string> ChartImport(const std::string& dir) {
  WriteFile(dir + "/chart.csv",
            "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO,DES_CONTA\n"
            "9,,S,0,N,Contas novas\n"
            "9.1,9,S,0,N,Grupo novo\n"
            "9.1.01,9.1,A,1,S,Conta nova\n");
  return {"chart-import", dir + "/chart.csv"};
}

// The result calculation commits inside the module (ApuraResultado opens and
// commits its own transaction); the tool's decorator sees that commit too.
std::vector<std::string> CloseResult(const std::string&) {
  return {"close-result", "--month", "202412",           "--day",    "31",       "--year", "2024",
          "--history",    "99",      "--result-account", "2.9.1.01", "--confirm"};
}

TEST(FalhaKvctbTest, PostFailingAtEachStatementWritesNothing) {
  CopiaSqlite demo(true);
  FalhaEmCada("post", Post, demo);
}

TEST(FalhaKvctbTest, ChartImportFailingAtEachStatementWritesNothing) {
  CopiaSqlite demo(true);
  FalhaEmCada("chart-import", ChartImport, demo);
}

// On the small books: a run over the demo company reads every account.
TEST(FalhaKvctbTest, CloseResultConfirmFailingAtEachStatementWritesNothing) {
  CopiaSqlite pequenos(false);
  FalhaEmCada("close-result", CloseResult, pequenos);
}

// The same three commands on the servers, on the small books.
class FalhaKvctbServidorTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const char* require = std::getenv("KVC_REQUIRE_SERVERS");
    const bool required = require && std::string(require) == "1";
    const std::string id = std::to_string(getpid());
    if (GetParam() == "Postgresql") {
      kvc::testing::PostgresqlTarget t;
      if (!kvc::testing::ParsePostgresqlTarget(t)) {
        if (required) FAIL() << "KVC_TEST_POSTGRESQL is required";
        GTEST_SKIP() << "KVC_TEST_POSTGRESQL not set";
      }
      // The server reached in a schema of this process through the client
      // library's own parameters.
      const std::string base = t.url;
      const std::string schema = "kvctb_falha_" + id;
      const std::string url = kvc::testing::SchemaUrl(t, schema);
      limpa_ = [base, schema] {
        db::Connect(base)->Execute("drop schema if exists " + schema + " cascade", {});
      };
      fonte_ = std::make_unique<Servidor>(url, [base, schema, this] {
        limpa_();
        db::Connect(base)->Execute("create schema " + schema, {});
      });
    } else {
      kvc::testing::FirebirdTarget t;
      if (!kvc::testing::ParseFirebirdTarget(t)) {
        if (required) FAIL() << "KVC_TEST_FIREBIRD is required";
        GTEST_SKIP() << "KVC_TEST_FIREBIRD not set";
      }
      kvc::testing::ShutdownFirebirdClientAtExit();
      const std::string path = t.directory + "/kvctb_falha_" + id + ".fdb";
      const std::string location = t.host + ":" + path;
      limpa_ = [location, t] { kvc::testing::DropFirebirdDatabaseIfThere(location, t); };
      fonte_ = std::make_unique<Servidor>(
          "firebird://" + t.user + ":" + t.password + "@" + t.host + "/" + path,
          [location, t, this] {
            limpa_();
            db::CreateFirebirdDatabase(location, t.user, t.password);
          });
    }
  }
  void TearDown() override {
    if (limpa_) limpa_();
  }

  std::function<void()> limpa_;
  std::unique_ptr<Fonte> fonte_;
};

TEST_P(FalhaKvctbServidorTest, PostFailingAtEachStatementWritesNothing) {
  FalhaEmCada("post", Post, *fonte_);
}

TEST_P(FalhaKvctbServidorTest, ChartImportFailingAtEachStatementWritesNothing) {
  FalhaEmCada("chart-import", ChartImport, *fonte_);
}

TEST_P(FalhaKvctbServidorTest, CloseResultConfirmFailingAtEachStatementWritesNothing) {
  FalhaEmCada("close-result", CloseResult, *fonte_);
}

INSTANTIATE_TEST_SUITE_P(Servidores, FalhaKvctbServidorTest,
                         ::testing::Values("Postgresql", "Firebird"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
}  // namespace kvc::cli::testing
