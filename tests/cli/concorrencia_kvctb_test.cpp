// Two kvctb processes posting 1,000 records each into one SQLite file at the
// same time: each completes, or fails cleanly with nothing of its file
// written and a message that says what to do; entry numbers stay unique per
// company, dealership and month, and the journal's debits equal its credits.
// KVC_CONCURRENCY_SEED=N replays one seed.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "accounting/db/provider.h"
#include "cli/kvctb_process.h"
#include "support/records.h"
#include "support/test_db.h"

namespace kvc::cli::testing {
namespace {

constexpr int kRegistros = 1000;
constexpr uint32_t kSementes = 20;

std::string Arquivo(uint32_t semente) {
  std::mt19937 rng(semente);
  const char* contas[] = {"1.1.1.01", "3.1.1.01", "5.1.1.01"};
  std::string texto;
  for (int i = 0; i < kRegistros; ++i) {
    kvc::testing::RegistroCampos c;
    c.yymm = rng() % 2 ? "2406" : "2407";
    c.dia = std::to_string(10 + rng() % 18);
    c.historico = "CONCORRENCIA " + std::to_string(i);
    const int a = static_cast<int>(rng() % 3);
    c.conta1 = contas[a];
    c.conta2 = contas[(a + 1) % 3];
    c.marca = rng() % 2 ? " " : "-";
    c.centavos = 1 + static_cast<int64_t>(rng() % 10000000);
    texto += kvc::testing::Registro(c) + "\n";
  }
  return texto;
}

void UmaSemente(uint32_t semente) {
  SCOPED_TRACE("seed " + std::to_string(semente) +
               " (replay: KVC_CONCURRENCY_SEED=" + std::to_string(semente) + ")");
  const std::string dir = DirectoryWithDemo("concorrencia_" + std::to_string(semente));
  WriteFile(dir + "/a.txt", Arquivo(semente * 2));
  WriteFile(dir + "/b.txt", Arquivo(semente * 2 + 1));
  auto conexao = db::Connect("sqlite:" + dir + "/demo.db");
  const long long antes = kvc::testing::CountRows(*conexao, "CTB_LANCAMENTO");

  RunResult a, b;
  std::thread ta([&] {
    a = RunKvctb({"--db", "sqlite:demo.db", "--quiet", "post", "a.txt", "--document", "801"},
                 In(dir));
  });
  std::thread tb([&] {
    b = RunKvctb({"--db", "sqlite:demo.db", "--quiet", "post", "b.txt", "--document", "802"},
                 In(dir));
  });
  ta.join();
  tb.join();

  long long esperadas = antes;
  for (const auto& [r, documento] : {std::pair{&a, 801}, std::pair{&b, 802}}) {
    const long long escritas =
        kvc::testing::Scalar(*conexao, "select count(*) from CTB_LANCAMENTO where DOCUMENTO = " +
                                           std::to_string(documento))
            .AsInteger();
    if (r->exit_code == 0) {
      EXPECT_EQ(escritas, 2 * kRegistros) << "document " << documento;
      esperadas += 2 * kRegistros;
    } else {
      EXPECT_EQ(r->exit_code, 1) << r->err;
      EXPECT_EQ(escritas, 0) << "document " << documento;
      EXPECT_NE(r->err.find("run it again"), std::string::npos) << r->err;
    }
    // A lock reaches the user only with what to do about it.
    if (r->err.find("database is locked") != std::string::npos) {
      EXPECT_NE(r->err.find("run it again"), std::string::npos) << r->err;
    }
  }
  // The busy timeout makes the second writer wait: both complete.
  EXPECT_EQ(a.exit_code, 0) << a.err;
  EXPECT_EQ(b.exit_code, 0) << b.err;
  EXPECT_EQ(kvc::testing::CountRows(*conexao, "CTB_LANCAMENTO"), esperadas);
  EXPECT_EQ(
      kvc::testing::Linhas(*conexao,
                           "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO from CTB_LANCAMENTO "
                           "group by EMPRESA, REVENDA, ANO_MES, LANCAMENTO having count(*) > 1"),
      std::vector<kvc::testing::Linha>{});
  const kvc::testing::Linha somas =
      kvc::testing::Linhas(*conexao,
                           "select sum(case when NATUREZA = 'D' then VAL_LANCAMENTO else 0 end), "
                           "sum(case when NATUREZA = 'C' then VAL_LANCAMENTO else 0 end) from "
                           "CTB_LANCAMENTO")
          .at(0);
  EXPECT_EQ(somas.at(0), somas.at(1));
  EXPECT_EQ(kvc::testing::Scalar(*conexao, "pragma integrity_check").AsString(), "ok");
}

TEST(ConcorrenciaKvctbTest, TwoProcessesPostingIntoOneFileKeepTheBooksWhole) {
  if (const char* s = std::getenv("KVC_CONCURRENCY_SEED")) {
    UmaSemente(static_cast<uint32_t>(std::stoul(s)));
    return;
  }
  for (uint32_t semente = 1; semente <= kSementes; ++semente) UmaSemente(semente);
}

}  // namespace
}  // namespace kvc::cli::testing
