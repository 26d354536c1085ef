// A failure at every statement of a posting batch held in the caller's
// transaction, from the first statement to the commit: afterwards every table
// is as it was, or differs only as the posting's documented failure rule
// allows (a refused division-row insert is swallowed and the entry stays,
// without that row).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/records.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr char kInsertDivisao[] = "insert into ctb_lancamento_dividido";

class FalhaEmCadaComandoTest : public ModuleTest {
 protected:
  // The company's chart and one entry already posted, so that the
  // summarised balances and numbers are updated as well as created; a new
  // module each time, since the division rows are numbered by a counter it
  // keeps.
  void Prepara() {
    if (dm_) dm_->LimpaSQLConnection();
    Bind();
    EmptyAllTables(*raw_);
    for (const char* conta : {"3101001", "1101001", "2101001"})
      raw_->Execute(std::string("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL_DIVISAO, "
                                "LANCAMENTO_DIVIDIDO) values (1, 1, '") +
                        conta + "', 0, 'N')",
                    {});
    ASSERT_TRUE(dm_->IniciaTransacao());
    dm_->GravaLancamento(Registro(RegistroCampos()), "1", "1", "4711", "9", false);
    ASSERT_TRUE(dm_->ComitaTransacao());
  }

  TabelasDoBanco Tabelas() { return TodasAsTabelas(*raw_); }

  // Runs `lote` as a host does: begin, the work, commit (or, for the
  // counting run, roll back); any failure is rolled back. True when the
  // work was committed.
  bool Executa(const std::function<void()>& lote, bool confirmar) {
    if (!dm_->IniciaTransacao()) return false;
    try {
      lote();
    } catch (const std::exception&) {
      (void)dm_->RollbackTransacao();
      return false;
    }
    if (!confirmar) return dm_->RollbackTransacao();
    return dm_->ComitaTransacao();
  }

  // Makes each statement of `lote` fail in turn, then the commit, and checks
  // the tables after each.
  void FalhaEmCada(const std::function<void()>& lote) {
    Prepara();
    const TabelasDoBanco antes = Tabelas();
    trace_->ClearFaults();
    ASSERT_TRUE(Executa(lote, true));
    const TabelasDoBanco completo = Tabelas();
    ASSERT_NE(completo, antes);

    Prepara();
    trace_->ClearFaults();  // counts from here
    ASSERT_TRUE(Executa(lote, false));
    const size_t comandos = trace_->SentCount();
    ASSERT_GT(comandos, 10u);
    ASSERT_EQ(Tabelas(), antes);

    size_t engolidas = 0;
    for (size_t k = 1; k <= comandos + 1; ++k) {
      SCOPED_TRACE("statement " + std::to_string(k) + " of " + std::to_string(comandos) + " fails");
      Prepara();
      trace_->Clear();
      if (k <= comandos)
        trace_->FailNth(k, "falha injetada");
      else
        trace_->FailCommit(true, "commit recusado");
      const bool gravou = Executa(lote, true);
      trace_->ClearFaults();
      trace_->FailCommit(false);
      EXPECT_FALSE(dm_->TransacaoAtiva());
      EXPECT_FALSE(raw_->InTransaction());
      if (!gravou) {
        EXPECT_EQ(Tabelas(), antes);
        continue;
      }
      // Only a refused division-row insert is swallowed: the entry and its
      // summarised balances stay, without that one row.
      std::string falhou;
      for (const auto& t : trace_->Trace())
        if (t.injected) falhou = t.sql;
      ASSERT_EQ(falhou.rfind(kInsertDivisao, 0), 0u) << falhou;
      ++engolidas;
      const TabelasDoBanco depois = Tabelas();
      for (const auto& [tabela, linhas] : completo) {
        if (tabela == "CTB_LANCAMENTO_DIVIDIDO")
          EXPECT_EQ(depois.at(tabela).size() + 1, linhas.size());
        else
          EXPECT_EQ(depois.at(tabela), linhas) << tabela;
      }
    }
    EXPECT_GT(engolidas, 0u);
  }
};

TEST_P(FalhaEmCadaComandoTest, PostingBatchInTheCallersTransaction) {
  RegistroCampos outro;
  outro.conta1 = "2101001";
  outro.marca = "-";
  outro.centavos = 99999;
  outro.historico_padrao = "45";
  RegistroCampos terceiro;
  terceiro.dia = "16";
  terceiro.centavos = 1;
  FalhaEmCada([&] {
    for (const RegistroCampos& campos : {RegistroCampos(), outro, terceiro})
      dm_->GravaLancamento(Registro(campos), "1", "1", "4712", "9", false);
  });
}

TEST_P(FalhaEmCadaComandoTest, ErpPairsInTheCallersTransaction) {
  RegistroCampos outro;
  outro.conta1 = "2101001";
  outro.centavos = 5050;
  FalhaEmCada([&] {
    for (const RegistroCampos& campos : {RegistroCampos(), outro}) {
      int32_t origem = 0;
      dm_->GravaLancamentoSAP(Registro(campos), "1", "1", "4713", "9", "C", false, origem);
      dm_->GravaLancamentoSAP(Registro(campos), "1", "1", "4713", "9", "D", false, origem);
    }
  });
}

KVC_INSTANTIATE_BACKENDS(FalhaEmCadaComandoTest);

}  // namespace
}  // namespace kvc::testing
