// kvctb post, chart-import and close-result --confirm with a failure at every
// statement they send, from the session's first read to the commit: each
// time the command exits 1 and every table of the database is as it was,
// except where the posting's documented rule swallows a refused
// division-row insert (the command then succeeds without that row).
//
// The tool runs in this process so that the failures are injected through
// its session's statement trace.
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/db/provider.h"
#include "accounting/db/trace.h"
#include "cli/app.h"
#include "cli/kvctb_process.h"
#include "cli/session.h"
#include "support/test_db.h"

namespace kvc::cli::testing {
namespace {

using kvc::testing::TabelasDoBanco;

constexpr char kInsertDivisao[] = "insert into ctb_lancamento_dividido";

// Runs kvctb in this process over `db` with `args` after the global options,
// calling `prepara` with the session's trace before its first statement.
int Kvctb(const std::string& db, const std::vector<std::string>& args,
          const std::function<void(db::TracingConnection&)>& prepara) {
  std::vector<std::string> todos = {"kvctb", "--db", "sqlite:" + db, "--quiet", "--format", "json"};
  todos.insert(todos.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& a : todos) argv.push_back(a.data());
  argv.push_back(nullptr);
  SetSessionTraceObserver(prepara);
  const int codigo = kvc::cli::RunKvctb(static_cast<int>(todos.size()), argv.data());
  SetSessionTraceObserver(nullptr);
  return codigo;
}

TabelasDoBanco Tabelas(const std::string& db) {
  auto c = db::Connect("sqlite:" + db);
  return kvc::testing::TodasAsTabelas(*c);
}

// Every table's row count.
std::map<std::string, size_t> Contagens(const TabelasDoBanco& t) {
  std::map<std::string, size_t> n;
  for (const auto& [tabela, linhas] : t) n[tabela] = linhas.size();
  return n;
}

// `args` failing at each of its statements in turn, then at its commit.
// `comando` writes the command's input files into the directory it is given
// and returns the command's arguments.
using Comando = std::function<std::vector<std::string>(const std::string& dir)>;

// The database a run starts from: the demo company (demo.db) or the small
// books (books.db), for commands whose run over the demo company reads
// too much to be repeated for every statement.
enum class Livros { kDemo, kPequenos };

void FalhaEmCada(const std::string& nome, const Comando& comando, Livros livros = Livros::kDemo) {
  std::vector<std::string> args;
  auto copia = [&](size_t k) {
    const std::string nome_k = nome + "_" + std::to_string(k);
    const std::string dir =
        livros == Livros::kDemo ? DirectoryWithDemo(nome_k) : DirectoryWithSmallBooks(nome_k);
    args = comando(dir);
    return dir + (livros == Livros::kDemo ? "/demo.db" : "/books.db");
  };
  // The uninterrupted run counts the statements and gives the tables the
  // command writes.
  const std::string base = copia(0);
  const TabelasDoBanco antes = Tabelas(base);
  size_t comandos = 0;
  ASSERT_EQ(Kvctb(base, args,
                  [&](db::TracingConnection& t) {
                    t.SetSink([&](const db::TracedStatement& s) {
                      if (s.kind == db::TracedStatement::Kind::kExecute ||
                          s.kind == db::TracedStatement::Kind::kQuery)
                        ++comandos;
                    });
                  }),
            0);
  const TabelasDoBanco completo = Tabelas(base);
  ASSERT_NE(completo, antes);
  ASSERT_GT(comandos, 5u);

  size_t engolidas = 0;
  for (size_t k = 1; k <= comandos + 1; ++k) {
    SCOPED_TRACE(nome + ": statement " + std::to_string(k) + " of " + std::to_string(comandos) +
                 (k > comandos ? " (the commit)" : "") + " fails");
    const std::string db = copia(k);
    // The sink sees statements only: a refused commit is named here.
    std::string falhou = k > comandos ? "commit" : "";
    const int codigo = Kvctb(db, args, [&](db::TracingConnection& t) {
      if (k <= comandos)
        t.FailNth(k, "falha injetada");
      else
        t.FailCommit(true, "commit recusado");
      t.SetSink([&](const db::TracedStatement& s) {
        if (s.failed) falhou = s.kind == db::TracedStatement::Kind::kCommit ? "commit" : s.sql;
      });
    });
    ASSERT_FALSE(falhou.empty());
    if (codigo == 0) {
      // Only the posting's division-row insert may be refused without
      // failing the command.
      ASSERT_TRUE(kvc::testing::ComecaCom(falhou, kInsertDivisao)) << falhou;
      auto esperado = Contagens(completo);
      --esperado["CTB_LANCAMENTO_DIVIDIDO"];
      EXPECT_EQ(Contagens(Tabelas(db)), esperado);
      ++engolidas;
    } else {
      EXPECT_EQ(codigo, 1);
      EXPECT_EQ(Tabelas(db), antes) << falhou;
    }
  }
  if (nome == "post") {
    EXPECT_GT(engolidas, 0u);
  }
}

TEST(FalhaKvctbTest, PostFailingAtEachStatementWritesNothing) {
  const std::string registros = TwoRecords();
  FalhaEmCada("post", [&](const std::string& dir) {
    WriteFile(dir + "/entries.txt", registros);
    return std::vector<std::string>{"post", dir + "/entries.txt", "--document", "4711"};
  });
}

TEST(FalhaKvctbTest, ChartImportFailingAtEachStatementWritesNothing) {
  FalhaEmCada("chart-import", [](const std::string& dir) {
    WriteFile(dir + "/chart.csv",
              "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO,DES_CONTA\n"
              "9,,S,0,N,Contas novas\n"
              "9.1,9,S,0,N,Grupo novo\n"
              "9.1.01,9.1,A,1,S,Conta nova\n");
    return std::vector<std::string>{"chart-import", dir + "/chart.csv"};
  });
}

// The result calculation commits inside the module (ApuraResultado opens and
// commits its own transaction); the tool's decorator sees that commit too.
TEST(FalhaKvctbTest, CloseResultConfirmFailingAtEachStatementWritesNothing) {
  FalhaEmCada(
      "close-result",
      [](const std::string&) {
        return std::vector<std::string>{
            "close-result", "--month", "202412",           "--day",    "31",       "--year", "2024",
            "--history",    "99",      "--result-account", "2.9.1.01", "--confirm"};
      },
      Livros::kPequenos);
}

}  // namespace
}  // namespace kvc::cli::testing
