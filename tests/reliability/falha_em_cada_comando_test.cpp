// A failure at every statement of an operation that holds a transaction,
// from the first statement to the commit: afterwards every table is as it
// was, or differs only as the operation's documented failure rule allows (a
// posting swallows a refused division-row insert and keeps the entry without
// that row; a deletion writes its audit records even when it was rolled
// back).
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/dados_teste.h"
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
      DadosDeTeste(*raw_).Conta(conta, {.nivel_divisao = 0, .lancamento_dividido = "N"});
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

// The deletion holds its own transaction. A failure inside it (or a refused
// commit) is rolled back and swallowed, and the audit records are written all
// the same: the journal, its division rows and the summarised balances are
// as they were. A failure while writing the audit records reaches the
// caller, with the deletion already committed.
TEST_P(FalhaEmCadaComandoTest, DeletionOfAPostedPair) {
  const std::vector<std::string> livro = {"CTB_LANCAMENTO", "CTB_LANCAMENTO_DIVIDIDO",
                                          "INT_SALDO_SUMARIZADO", "CTB_SALDO_ANTERIOR",
                                          "CTB_SALDO_ANTERIOR_DIVISAO"};
  auto do_livro = [&livro](const TabelasDoBanco& banco) {
    TabelasDoBanco parte;
    for (const std::string& tabela : livro) parte[tabela] = banco.at(tabela);
    return parte;
  };
  auto exclui = [this] { dm_->ExcluiLancamentoSelecionado(1, "202405", "15", nullptr); };

  Prepara();
  const TabelasDoBanco antes = Tabelas();
  trace_->ClearFaults();
  trace_->Clear();
  exclui();
  const TabelasDoBanco completo = Tabelas();
  ASSERT_NE(do_livro(completo), do_livro(antes));
  ASSERT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS"), 2);
  // The statements before the commit belong to the deletion; the rest to
  // the audit records.
  size_t na_transacao = 0, total = 0;
  bool comitado = false;
  for (const auto& t : trace_->Trace()) {
    if (t.kind == db::TracedStatement::Kind::kCommit) comitado = true;
    if (t.kind != db::TracedStatement::Kind::kExecute &&
        t.kind != db::TracedStatement::Kind::kQuery)
      continue;
    ++total;
    if (!comitado) ++na_transacao;
  }
  ASSERT_GT(na_transacao, 5u);
  ASSERT_GT(total, na_transacao);

  for (size_t k = 1; k <= total + 1; ++k) {
    SCOPED_TRACE("statement " + std::to_string(k) + " of " + std::to_string(total) + " fails");
    Prepara();
    trace_->ClearFaults();
    if (k <= total)
      trace_->FailNth(k, "falha injetada");
    else
      trace_->FailNextCommit("commit recusado");  // the deletion's
    bool propagou = false;
    try {
      exclui();
    } catch (const std::exception&) {
      propagou = true;
    }
    trace_->ClearFaults();
    EXPECT_FALSE(dm_->TransacaoAtiva());
    EXPECT_FALSE(raw_->InTransaction());
    const TabelasDoBanco depois = Tabelas();
    if (k <= na_transacao || k > total) {
      EXPECT_FALSE(propagou);
      EXPECT_EQ(do_livro(depois), do_livro(antes));
      EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS"), 2);
      EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS_ITENS"), 2);
    } else {
      EXPECT_TRUE(propagou);
      EXPECT_EQ(do_livro(depois), do_livro(completo));
      EXPECT_LT(CountRows(*raw_, "GER_LOG_CADASTROS_ITENS"), 2);
    }
  }
}

KVC_INSTANTIATE_BACKENDS(FalhaEmCadaComandoTest);

}  // namespace
}  // namespace kvc::testing
