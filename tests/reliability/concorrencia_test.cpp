// Two connections posting into one database at the same time, each batch in
// a transaction of its own: every batch is committed whole or refused whole
// (nothing of it written), entry numbers stay unique per company,
// dealership and month, and the journal's debits equal its credits. On
// SQLite a writer waits for the other (busy timeout and immediate
// transactions); on the servers the numbering row serialises them, and a
// transaction that loses an update conflict is refused cleanly.
#include <gtest/gtest.h>

#include <unistd.h>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "accounting/db/dialect.h"
#include "accounting/db/provider.h"
#include "accounting/db/schema.h"
#include "support/dados_teste.h"
#include "support/records.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr int kRodadas = 8;
constexpr int kPorLote = 40;

struct Resultado {
  std::vector<int> confirmados;  // documents committed
  std::vector<int> recusados;    // documents refused and rolled back
  std::string erro;              // a failure the test cannot accept
};

// One writer: its own data module on `conexao`, `kRodadas` batches of
// `kPorLote` records, batch r of writer `fio` under document fio * 100 + r.
void Escreve(db::Connection& conexao, int fio, uint32_t semente, Resultado& r) {
  TSimpleHostContext host;
  host.tipo_banco = std::string(conexao.dialect().TipoBanco());
  TddmContabilidadeBD dm;
  dm.AtualizaTAplicacao(host, &conexao, 1);
  dm.SetaSQLConnection();
  std::mt19937 rng(semente);
  const char* contas[] = {"3101001", "1101001", "2101001"};
  for (int rodada = 0; rodada < kRodadas; ++rodada) {
    const int documento = fio * 100 + rodada;
    if (!dm.IniciaTransacao()) {
      r.recusados.push_back(documento);
      continue;
    }
    try {
      // A host reads in its transaction before it posts: the read must not
      // leave the writer unable to wait for the other's lock later.
      (void)conexao.Query("select count(*) N from CTB_LANCAMENTO", {});
      for (int i = 0; i < kPorLote; ++i) {
        RegistroCampos campos;
        campos.yymm = rng() % 2 ? "2405" : "2406";
        campos.dia = rng() % 2 ? "10" : "20";
        const int a = static_cast<int>(rng() % 3);
        campos.conta1 = contas[a];
        campos.conta2 = contas[(a + 1) % 3];
        campos.centavos = 1 + static_cast<int64_t>(rng() % 1000000);
        dm.GravaLancamento(Registro(campos), "1", "1", std::to_string(documento), "1", false);
      }
    } catch (const std::exception&) {
      if (!dm.RollbackTransacao()) r.erro = "rollback refused";
      r.recusados.push_back(documento);
      continue;
    }
    if (dm.ComitaTransacao())
      r.confirmados.push_back(documento);
    else
      r.recusados.push_back(documento);
  }
  if (dm.TransacaoAtiva()) r.erro = "a transaction was left open";
  dm.LimpaSQLConnection();
}

class ConcorrenciaTest : public ::testing::TestWithParam<BackendName> {
 protected:
  void SetUp() override {
    if (GetParam() == "sqlite") {
      caminho_ = (std::filesystem::temp_directory_path() /
                  ("kvc_concorrencia_" + std::to_string(getpid()) + ".db"))
                     .string();
      std::filesystem::remove(caminho_);
      primeira_ = db::Connect("sqlite:" + caminho_);
      db::CreateSchema(*primeira_);
      segunda_ = db::Connect("sqlite:" + caminho_);
    } else {
      // A second open of a server database empties it too: both are opened
      // before anything is written.
      primeira_ = OpenTestDatabase(GetParam());
      segunda_ = OpenTestDatabase(GetParam());
      if (!primeira_ || !segunda_) {
        if (std::getenv("KVC_REQUIRE_SERVERS") &&
            std::string(std::getenv("KVC_REQUIRE_SERVERS")) == "1")
          FAIL() << GetParam() << " is required but not configured";
        GTEST_SKIP() << GetParam() << " not configured";
      }
    }
    for (const char* conta : {"3101001", "1101001", "2101001"})
      DadosDeTeste(*primeira_).Conta(conta, {.nivel_divisao = 0, .lancamento_dividido = "N"});
  }

  void TearDown() override {
    primeira_.reset();
    segunda_.reset();
    if (!caminho_.empty()) std::filesystem::remove(caminho_);
  }

  std::string caminho_;
  std::unique_ptr<db::Connection> primeira_;
  std::unique_ptr<db::Connection> segunda_;
};

TEST_P(ConcorrenciaTest, TwoWritersAtOnceCommitOrRefuseWholeBatches) {
  const uint32_t semente = 20261123;
  SCOPED_TRACE("seed " + std::to_string(semente));
  Resultado um, dois;
  std::thread a([&] { Escreve(*primeira_, 1, semente, um); });
  std::thread b([&] { Escreve(*segunda_, 2, semente + 1, dois); });
  a.join();
  b.join();
  EXPECT_EQ(um.erro, "");
  EXPECT_EQ(dois.erro, "");
  EXPECT_EQ(um.confirmados.size() + um.recusados.size(), static_cast<size_t>(kRodadas));
  EXPECT_EQ(dois.confirmados.size() + dois.recusados.size(), static_cast<size_t>(kRodadas));
  // SQLite makes the second writer wait: nothing is refused there.
  if (GetParam() == "sqlite") {
    EXPECT_TRUE(um.recusados.empty());
    EXPECT_TRUE(dois.recusados.empty());
  }
  ASSERT_GT(um.confirmados.size() + dois.confirmados.size(), 0u);

  db::Connection& c = *primeira_;
  for (const Resultado* r : {&um, &dois}) {
    for (int d : r->confirmados)
      EXPECT_EQ(
          Scalar(c, "select count(*) from CTB_LANCAMENTO where DOCUMENTO = " + std::to_string(d))
              .AsInteger(),
          2 * kPorLote)
          << "document " << d;
    for (int d : r->recusados)
      EXPECT_EQ(
          Scalar(c, "select count(*) from CTB_LANCAMENTO where DOCUMENTO = " + std::to_string(d))
              .AsInteger(),
          0)
          << "document " << d;
  }
  const long long linhas = CountRows(c, "CTB_LANCAMENTO");
  EXPECT_EQ(linhas, static_cast<long long>(2 * kPorLote *
                                           (um.confirmados.size() + dois.confirmados.size())));
  EXPECT_EQ(Linhas(c,
                   "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO from CTB_LANCAMENTO group by "
                   "EMPRESA, REVENDA, ANO_MES, LANCAMENTO having count(*) > 1"),
            std::vector<Linha>{});
  const Linha somas = Linhas(c,
                             "select sum(case when NATUREZA = 'D' then VAL_LANCAMENTO else 0 end), "
                             "sum(case when NATUREZA = 'C' then VAL_LANCAMENTO else 0 end) from "
                             "CTB_LANCAMENTO")
                          .at(0);
  EXPECT_EQ(somas.at(0), somas.at(1));
}

INSTANTIATE_TEST_SUITE_P(Db, ConcorrenciaTest,
                         ::testing::Values("sqlite", "firebird", "postgresql", "odbc"),
                         BackendTestName);

}  // namespace
}  // namespace kvc::testing
