// The entry screens' lookups on each database: a cost centre's description
// and the free-text lines of the invoice behind an entry.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "accounting/db/error.h"
#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

using Kind = db::TracedStatement::Kind;

constexpr char kSelectItensNota[] =
    " select FMDL.DESCRICAO, FMDL.ORDEM    from FAT_MOVIMENTO_DESC_LIVRE FMDL  inner join "
    "FAT_MOVIMENTO_CAPA FMC on (FMC.EMPRESA = FMDL.EMPRESA                                   and "
    " FMC.REVENDA = FMDL.REVENDA                                   and  FMC.NUMERO_NOTA_FISCAL = "
    "FMDL.NUMERO_NOTA_FISCAL                                   and  FMC.SERIE_NOTA_FISCAL = "
    "FMDL.SERIE_NOTA_FISCAL                                   and  FMC.TIPO_TRANSACAO = "
    "FMDL.TIPO_TRANSACAO                                   and  FMC.CONTADOR = FMDL.CONTADOR)  "
    "inner join CTB_LANCAMENTO CTBL on (FMC.EMPRESA = CTBL.EMPRESA                                "
    "and  FMC.REVENDA = CTBL.REVENDA_OPERACAO                                and  FMC.OPERACAO = "
    "CTBL.OPERACAO                                and  FMC.NUMERO_NOTA_FISCAL = CTBL.DOCUMENTO)  "
    "inner join FAT_TIPO_TRANSACAO FTT on (FTT.TIPO_TRANSACAO = FMC.TIPO_TRANSACAO)  where "
    "FTT.UTILIZA_DESPESAS = 'S'    and CTBL.EMPRESA = ";

std::string SqlText(const std::string& text) { return text.empty() ? "NULL" : "'" + text + "'"; }

class ConsultasTest : public ModuleTest {
 protected:
  void CentroCusto(int empresa, int revenda, int centro, const std::string& descricao,
                   const std::string& inativo) {
    raw_->Execute(
        "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO, "
        "INATIVO_CONSULTAS) values (" +
            std::to_string(empresa) + ", " + std::to_string(revenda) + ", " +
            std::to_string(centro) + ", " + SqlText(descricao) + ", " + SqlText(inativo) + ")",
        {});
  }

  // Entry 7 of company 1, dealership 1, month 202405, posted from document
  // `documento` of operation `operacao` in operating dealership
  // `revenda_operacao`.
  void Lancamento(int revenda_operacao, int operacao, int documento) {
    DadosDeTeste(*raw_)
        .ComValores(EscritaDeValor::kDuasCasas)
        .Lancamento(202405, 7, "3101", "C", 100,
                    {.dia = 15,
                     .origem = "O",
                     .documento = documento,
                     .operacao = operacao,
                     .revenda_operacao = revenda_operacao});
  }

  void TipoTransacao(const std::string& tipo, const std::string& utiliza_despesas) {
    raw_->Execute("insert into FAT_TIPO_TRANSACAO (TIPO_TRANSACAO, UTILIZA_DESPESAS) values ('" +
                      tipo + "', " + SqlText(utiliza_despesas) + ")",
                  {});
  }

  // An invoice header of company 1.
  void Capa(int revenda, int numero, const std::string& serie, const std::string& tipo,
            int contador, int operacao) {
    raw_->Execute(
        "insert into FAT_MOVIMENTO_CAPA (EMPRESA, REVENDA, NUMERO_NOTA_FISCAL, SERIE_NOTA_FISCAL, "
        "TIPO_TRANSACAO, CONTADOR, OPERACAO) values (1, " +
            std::to_string(revenda) + ", " + std::to_string(numero) + ", '" + serie + "', '" +
            tipo + "', " + std::to_string(contador) + ", " + std::to_string(operacao) + ")",
        {});
  }

  // A free-text line of that header; `descricao` is written as given (the
  // empty text too).
  void Linha(int revenda, int numero, const std::string& serie, const std::string& tipo,
             int contador, int ordem, const std::string& descricao) {
    raw_->Execute(
        "insert into FAT_MOVIMENTO_DESC_LIVRE (EMPRESA, REVENDA, NUMERO_NOTA_FISCAL, "
        "SERIE_NOTA_FISCAL, TIPO_TRANSACAO, CONTADOR, ORDEM, DESCRICAO) values (1, " +
            std::to_string(revenda) + ", " + std::to_string(numero) + ", '" + serie + "', '" +
            tipo + "', " + std::to_string(contador) + ", " + std::to_string(ordem) + ", '" +
            descricao + "')",
        {});
  }

  std::string Itens(int32_t lancamento = 7, int32_t ano_mes = 202405) {
    return dm_->BuscaItensNotaDescricaoLivre(1, 1, ano_mes, lancamento, "");
  }
};

// ---- cost centres -----------------------------------------------------------------

TEST_P(ConsultasTest, CostCentreLookupSendsItsStatementExactly) {
  CentroCusto(1, 2, 10, "Oficina", "");
  Bind();
  trace_->Clear();

  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 2, 10, false), "Oficina");
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 2, 10, true), "Oficina");

  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                " select DES_CENTRO_CUSTO from CTB_CENTRO_CUSTO  where  EMPRESA = 1 and    "
                "REVENDA = 2 and    CENTRO_CUSTO = 10",
                " select DES_CENTRO_CUSTO from CTB_CENTRO_CUSTO  where  EMPRESA = 1 and    "
                "REVENDA = 2 and    CENTRO_CUSTO = 10 and coalesce(INATIVO_CONSULTAS,'N') <> 'S' ",
            }));
}

TEST_P(ConsultasTest, InactiveCostCentreIsHiddenFromActiveOnlyLookup) {
  CentroCusto(1, 1, 10, "Funilaria", "S");
  Bind();
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 10, false), "Funilaria");
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 10, true), "");
}

TEST_P(ConsultasTest, CostCentreWithoutInactiveMarkCountsAsActive) {
  CentroCusto(1, 1, 10, "Pecas", "");
  CentroCusto(1, 1, 11, "Servicos", "N");
  Bind();
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 10, true), "Pecas");
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 11, true), "Servicos");
}

TEST_P(ConsultasTest, MissingCostCentreYieldsEmptyText) {
  CentroCusto(1, 1, 10, "Pecas", "");
  CentroCusto(2, 1, 20, "Outra empresa", "");
  CentroCusto(1, 2, 30, "Outra revenda", "");
  Bind();
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 11, false), "");
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 20, false), "") << "another company's";
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 30, false), "") << "another dealership's";
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 11, true), "");
}

TEST_P(ConsultasTest, NullCostCentreDescriptionYieldsEmptyText) {
  CentroCusto(1, 1, 10, "", "N");
  Bind();
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 10, false), "");
}

// ---- invoice lines -------------------------------------------------------------------

TEST_P(ConsultasTest, ItemLookupSendsItsStatementExactlyAndIgnoresTheLastArgument) {
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 1, "Revisao");
  Bind();
  trace_->Clear();

  EXPECT_EQ(dm_->BuscaItensNotaDescricaoLivre(1, 1, 202405, 7, ""), "Revisao\r");
  EXPECT_EQ(dm_->BuscaItensNotaDescricaoLivre(1, 1, 202405, 7, "qualquer coisa"), "Revisao\r");

  const std::string expected = kSelectItensNota + std::string(
                                                      "1   and CTBL.REVENDA = 1   and "
                                                      "CTBL.LANCAMENTO = 7   and CTBL.ANO_MES = "
                                                      "202405 order by FMDL.ORDEM ");
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{expected, expected}));
}

TEST_P(ConsultasTest, EntryWithoutMatchingInvoiceYieldsEmptyText) {
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(1, 4321, "1", "V21", 1, 50);  // another invoice number
  Linha(1, 4321, "1", "V21", 1, 1, "Outra nota");
  Capa(1, 1234, "1", "V21", 2, 51);  // another operation
  Linha(1, 1234, "1", "V21", 2, 1, "Outra operacao");
  Bind();
  EXPECT_EQ(Itens(), "");
  EXPECT_EQ(Itens(8), "") << "an entry that does not exist";
  EXPECT_EQ(Itens(7, 202406), "") << "the entry's number in another month";
}

TEST_P(ConsultasTest, InvoiceWhoseTransactionTypeDoesNotUseExpensesYieldsEmptyText) {
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "N");
  TipoTransacao("V22", "");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 1, "Sem despesas");
  Capa(1, 1234, "2", "V22", 1, 50);
  Linha(1, 1234, "2", "V22", 1, 1, "Tipo sem marca");
  Bind();
  EXPECT_EQ(Itens(), "");
}

TEST_P(ConsultasTest, InvoiceIsFoundThroughTheEntrysOperatingDealership) {
  Lancamento(2, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(2, 1234, "1", "V21", 1, 50);
  Linha(2, 1234, "1", "V21", 1, 1, "Da revenda 2");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 1, "Da revenda 1");
  Bind();
  EXPECT_EQ(Itens(), "Da revenda 2\r");
}

TEST_P(ConsultasTest, ThreeDescriptionsAreEachFollowedByACarriageReturn) {
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 3, "Lavagem");
  Linha(1, 1234, "1", "V21", 1, 1, "Filtro de oleo");
  Linha(1, 1234, "1", "V21", 1, 2, "Mao de obra");
  Bind();
  const std::string itens = Itens();
  EXPECT_EQ(itens, "Filtro de oleo\rMao de obra\rLavagem\r");
  ASSERT_FALSE(itens.empty());
  EXPECT_EQ(itens.back(), '\r');
  EXPECT_EQ(itens.find('\n'), std::string::npos) << "no line feed";
}

TEST_P(ConsultasTest, EmptyDescriptionStillContributesItsCarriageReturn) {
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 1, "Primeira");
  Linha(1, 1234, "1", "V21", 1, 2, "");
  Linha(1, 1234, "1", "V21", 1, 3, "Terceira");
  Bind();
  EXPECT_EQ(Itens(), "Primeira\r\rTerceira\r");
}

TEST_P(ConsultasTest, DuplicateInvoiceHeadersRepeatDescriptions) {
  // Two headers of the same invoice number and operation (counters 1 and
  // 2), each with the same two lines: both match the entry.
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  for (int contador : {1, 2}) {
    Capa(1, 1234, "1", "V21", contador, 50);
    Linha(1, 1234, "1", "V21", contador, 1, "Pneu");
    Linha(1, 1234, "1", "V21", contador, 2, "Alinhamento");
  }
  Bind();
  EXPECT_EQ(Itens(), "Pneu\rPneu\rAlinhamento\rAlinhamento\r");
}

// ---- both lookups ------------------------------------------------------------------------

TEST_P(ConsultasTest, LookupsOnlyReadAndLeaveTheirDatasetsClosed) {
  CentroCusto(1, 1, 10, "Pecas", "");
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 1, "Revisao");
  Bind();
  trace_->Clear();

  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 10, true), "Pecas");
  EXPECT_EQ(Itens(), "Revisao\r");

  ASSERT_EQ(trace_->Trace().size(), 2u);
  for (const auto& t : trace_->Trace()) EXPECT_EQ(t.kind, Kind::kQuery) << t.sql;
  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_FALSE(dm_->sdsAux.Active());
  EXPECT_FALSE(dm_->sdsAux3.Active());
}

TEST_P(ConsultasTest, LookupDatabaseErrorReachesTheCaller) {
  CentroCusto(1, 1, 10, "Pecas", "");
  Lancamento(1, 50, 1234);
  TipoTransacao("V21", "S");
  Capa(1, 1234, "1", "V21", 1, 50);
  Linha(1, 1234, "1", "V21", 1, 1, "Revisao");
  Bind();

  trace_->FailMatching("CTB_CENTRO_CUSTO");
  EXPECT_THROW(dm_->BuscaDescricaoCCusto(1, 1, 10, false), db::DatabaseError);
  trace_->FailMatching("FAT_MOVIMENTO_DESC_LIVRE");
  EXPECT_THROW(Itens(), db::DatabaseError);
  trace_->ClearFaults();

  // The next use of the same datasets works again.
  EXPECT_EQ(dm_->BuscaDescricaoCCusto(1, 1, 10, false), "Pecas");
  EXPECT_EQ(Itens(), "Revisao\r");
}

KVC_INSTANTIATE_BACKENDS(ConsultasTest);

}  // namespace
}  // namespace kvc::testing
