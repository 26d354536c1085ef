// The general services on each database: server time, numbering, entry
// numbers, summarised balances and the structure-version check.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <iostream>

#include "accounting/db/dialect.h"
#include "accounting/db/error.h"
#include "accounting/services/zorutils.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

using ServicesTest = ModuleTest;

TEST_P(ServicesTest, TwoEntryNumbersOfOneMonthDiffer) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  int32_t first = dm_->PegaNovoLancamento("1", "1", "202405");
  int32_t second = dm_->PegaNovoLancamento("1", "1", "202405");
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_NE(first, second);
  EXPECT_EQ(second, first + 1);
}

TEST_P(ServicesTest, AnotherMonthDrawsFromItsOwnKey) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  int32_t may = dm_->PegaNovoLancamento("1", "1", "202405");
  int32_t june = dm_->PegaNovoLancamento("1", "1", "202406");
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(may, 1);
  EXPECT_EQ(june, 1);
  EXPECT_EQ(Column(*raw_,
                   "select CHAVE from GER_NUMERADOR where TABELA = 'CTB_LANCAMENTO' "
                   "order by CHAVE"),
            (std::vector<std::string>{"LCTO202405", "LCTO202406"}));
}

TEST_P(ServicesTest, MonthTextIsAppendedToKeyExactlyAsGiven) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->PegaNovoLancamento("1", "1", "2024 5");
  dm_->PegaNovoLancamento("1", "1", "0202405");
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(Column(*raw_, "select CHAVE from GER_NUMERADOR order by CHAVE"),
            (std::vector<std::string>{"LCTO0202405", "LCTO2024 5"}));
}

TEST_P(ServicesTest, NonNumericCompanyRaisesBeforeNumbering) {
  Bind();
  EXPECT_THROW(dm_->PegaNovoLancamento("1a", "1", "202405"), std::invalid_argument);
  EXPECT_THROW(dm_->PegaNovoLancamento("1", "", "202405"), std::invalid_argument);
  EXPECT_EQ(CountRows(*raw_, "GER_NUMERADOR"), 0);
}

TEST_P(ServicesTest, RolledBackDrawIsUndoneWithItsTransaction) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_EQ(dm_->PegaNovoLancamento("1", "1", "202405"), 1);
  ASSERT_TRUE(dm_->ComitaTransacao());
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_EQ(dm_->PegaNovoLancamento("1", "1", "202405"), 2);
  ASSERT_TRUE(dm_->RollbackTransacao());
  ASSERT_TRUE(dm_->IniciaTransacao());
  // The rolled-back draw is undone with its transaction on this store.
  EXPECT_EQ(dm_->PegaNovoLancamento("1", "1", "202405"), 2);
  ASSERT_TRUE(dm_->ComitaTransacao());
}

TEST_P(ServicesTest, NumberingIsKeyedByCompanyDealershipTableAndKey) {
  Bind();
  EXPECT_EQ(dm_->BuscaProximoNumero(1, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", nullptr, 1), 1);
  EXPECT_EQ(dm_->BuscaProximoNumero(1, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", nullptr, 1), 2);
  EXPECT_EQ(dm_->BuscaProximoNumero(2, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", nullptr, 1), 1);
  EXPECT_EQ(dm_->BuscaProximoNumero(1, 1, "OUTRA", "LOG_CADASTROS", nullptr, 1), 1);
  EXPECT_FALSE(raw_->InTransaction()) << "its own transaction is closed";
}

TEST_P(ServicesTest, NumberingOnGivenConnectionRunsInCallersTransaction) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  trace_->Clear();
  EXPECT_EQ(
      dm_->BuscaProximoNumeroTran(*trace_, 1, 1, "CTB_SALDO_ANTERIOR_DIVISAO", "SEQUENCIA", 1), 1);
  for (const auto& t : trace_->Trace())
    EXPECT_TRUE(t.kind == db::TracedStatement::Kind::kExecute ||
                t.kind == db::TracedStatement::Kind::kQuery)
        << "no transaction of its own";
  ASSERT_TRUE(dm_->RollbackTransacao());
  EXPECT_EQ(CountRows(*raw_, "GER_NUMERADOR"), 0);
}

TEST_P(ServicesTest, ServerTimeComesFromTheDatabase) {
  Bind();
  trace_->Clear();
  DateTime now = dm_->DataHoraBD(false, true);
  EXPECT_TRUE(now.IsValid()) << now.ToIso();
  EXPECT_GE(now.year, 2024);
  ASSERT_EQ(trace_->Statements().size(), 1u);
  EXPECT_EQ(trace_->Statements()[0], raw_->dialect().ServerTimeQuery());
}

TEST_P(ServicesTest, ServerTimeFailureReachesCaller) {
  Bind();
  trace_->FailNth(1);
  EXPECT_THROW(dm_->DataHoraBD(false, true), db::DatabaseError);
}

TEST_P(ServicesTest, SummarisedBalanceAddsAndSubtracts) {
  Bind();
  ASSERT_TRUE(dm_->AtualizaSaldoSumarizado(*trace_, "L", "I", "", "", "1101", "D", 1, 1, 202405, -1,
                                           -1, -1, -1, -1, 100.25));
  ASSERT_TRUE(dm_->AtualizaSaldoSumarizado(*trace_, "L", "I", "", "", "1101", "D", 1, 1, 202405, -1,
                                           -1, -1, -1, -1, 50));
  ASSERT_TRUE(dm_->AtualizaSaldoSumarizado(*trace_, "L", "E", "", "", "1101", "D", 1, 1, 202405, -1,
                                           -1, -1, -1, -1, 30.5));
  ASSERT_TRUE(dm_->AtualizaSaldoSumarizado(*trace_, "D", "I", "", "", "1101", "D", 1, 1, 202405, 7,
                                           -1, -1, -1, 2, 10));
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 2);
  EXPECT_DOUBLE_EQ(
      Scalar(*raw_, "select SALDO from INT_SALDO_SUMARIZADO where TIPO_SALDO = 'L'").AsFloat(),
      119.75);
  EXPECT_DOUBLE_EQ(Scalar(*raw_,
                          "select SALDO from INT_SALDO_SUMARIZADO where TIPO_SALDO = 'D' and "
                          "DIVISAO1 = 7 and DIVISAO5 = 2")
                       .AsFloat(),
                   10);
}

// The libraries' own statements never change their text: the values travel
// bound (the amount as its text with a point, whatever the locale), so one
// prepared statement serves every call.
TEST_P(ServicesTest, SummarisedBalanceAndNumberingSendTheirValuesBound) {
  Bind();
  struct Locale {
    std::string anterior = std::setlocale(LC_ALL, nullptr);
    ~Locale() { std::setlocale(LC_ALL, anterior.c_str()); }
  } locale;
  const bool virgula = std::setlocale(LC_ALL, "pt_BR.UTF-8") != nullptr;
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  ASSERT_TRUE(dm_->AtualizaSaldoSumarizado(*trace_, "L", "I", "", "", "1101", "D", 1, 1, 202405, -1,
                                           -1, -1, -1, -1, 1234.5));
  ASSERT_TRUE(dm_->AtualizaSaldoSumarizado(*trace_, "L", "E", "", "", "1101", "D", 1, 1, 202405, -1,
                                           -1, -1, -1, -1, 0.25));
  const int32_t numero = dm_->PegaNovoLancamento("1", "1", "202405");
  ASSERT_TRUE(dm_->ComitaTransacao());
  if (!virgula) std::cerr << "pt_BR.UTF-8 not installed: checked under the C locale\n";

  std::vector<std::string> textos;
  std::vector<std::string> valores;
  for (const db::TracedStatement& t : trace_->Trace()) {
    if (t.sql.empty()) continue;
    textos.push_back(t.sql);
    std::string linha;
    for (const db::BoundParam& p : t.params) linha += p.name + "=" + p.value.AsString() + ";";
    valores.push_back(linha);
  }
  const std::string update_saldo =
      "update INT_SALDO_SUMARIZADO set SALDO = SALDO + :VALOR where TIPO_SALDO = :TIPO_SALDO and "
      "TEXTO3 = :TEXTO3 and TEXTO4 = :TEXTO4 and CONTA = :CONTA and NATUREZA = :NATUREZA and "
      "EMPRESA = :EMPRESA and REVENDA = :REVENDA and ANO_MES = :ANO_MES and DIVISAO1 = :DIVISAO1 "
      "and DIVISAO2 = :DIVISAO2 and DIVISAO3 = :DIVISAO3 and DIVISAO4 = :DIVISAO4 and DIVISAO5 = "
      ":DIVISAO5";
  ASSERT_EQ(textos.size(), 6u);
  EXPECT_EQ(textos[0], update_saldo);
  EXPECT_EQ(textos[1].substr(0, 34), "insert into INT_SALDO_SUMARIZADO (");
  EXPECT_EQ(textos[2], update_saldo);
  EXPECT_EQ(textos[3],
            "update GER_NUMERADOR set ULTIMO_NUMERO = ULTIMO_NUMERO + :PASSO where EMPRESA = "
            ":EMPRESA and REVENDA = :REVENDA and TABELA = :TABELA and CHAVE = :CHAVE");
  EXPECT_EQ(textos[5],
            "select ULTIMO_NUMERO from GER_NUMERADOR where EMPRESA = :EMPRESA and REVENDA = "
            ":REVENDA and TABELA = :TABELA and CHAVE = :CHAVE");
  const std::string chave_saldo =
      "TIPO_SALDO=L;TEXTO3=;TEXTO4=;CONTA=1101;NATUREZA=D;EMPRESA=1;REVENDA=1;ANO_MES=202405;"
      "DIVISAO1=-1;DIVISAO2=-1;DIVISAO3=-1;DIVISAO4=-1;DIVISAO5=-1;";
  EXPECT_EQ(valores[0], chave_saldo + "VALOR=1234.50;");
  EXPECT_EQ(valores[2], chave_saldo + "VALOR=-0.25;");
  EXPECT_EQ(valores[5], "EMPRESA=1;REVENDA=1;TABELA=CTB_LANCAMENTO;CHAVE=LCTO202405;");
  EXPECT_DOUBLE_EQ(
      Scalar(*raw_, "select SALDO from INT_SALDO_SUMARIZADO where TIPO_SALDO = 'L'").AsFloat(),
      1234.25);
  EXPECT_EQ(numero, 1);
}

// An amount that is no number fails the update and writes nothing (bound
// as text it would have been read as zero, or stored as the text).
TEST_P(ServicesTest, SummarisedBalanceOfAnAmountThatIsNoNumberFails) {
  Bind();
  for (const double valor : {std::nan(""), HUGE_VAL, -HUGE_VAL})
    EXPECT_THROW((void)dm_->AtualizaSaldoSumarizado(*trace_, "L", "I", "", "", "1101", "D", 1, 1,
                                                    202405, -1, -1, -1, -1, -1, valor),
                 db::DatabaseError);
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
}

TEST_P(ServicesTest, SummarisedBalanceRefusesUnknownKind) {
  Bind();
  EXPECT_FALSE(dm_->AtualizaSaldoSumarizado(*trace_, "L", "X", "", "", "1101", "D", 1, 1, 202405,
                                            -1, -1, -1, -1, -1, 1));
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
}

TEST_P(ServicesTest, SummarisedBalanceDatabaseErrorReachesCaller) {
  Bind();
  trace_->FailMatching("INT_SALDO_SUMARIZADO");
  EXPECT_THROW((void)dm_->AtualizaSaldoSumarizado(*trace_, "L", "I", "", "", "1101", "D", 1, 1,
                                                  202405, -1, -1, -1, -1, -1, 1),
               db::DatabaseError);
}

TEST_P(ServicesTest, DatabaseOfAnotherStructureVersionIsRefused) {
  raw_->Execute("update GER_VERSAO_ESTRUTURA set VERSAO = '2.08'", {});
  Bind();
  EXPECT_TRUE(host_.terminate_requested);
  EXPECT_EQ(host_.last_message,
            "Versão da DLL KVIntegracaoContabil01.dll 2.09 incompatível com banco versão 2.09");
}

TEST_P(ServicesTest, DatabaseOfRequiredVersionIsAccepted) {
  Bind();
  EXPECT_FALSE(host_.terminate_requested);
  EXPECT_TRUE(dm_->DLLsInicializadas());
  EXPECT_EQ(host_.messages_shown, 0);
}

TEST_P(ServicesTest, LibrariesRefuseAnotherRequiredVersion) {
  auto geral = NewGeral01();
  auto integracao = NewIntegracaoContabil01();
  EXPECT_TRUE(geral->DLL_InicializaGeral01("2.09", 1));
  EXPECT_FALSE(geral->DLL_InicializaGeral01("2.10", 1));
  EXPECT_TRUE(integracao->DLL_InicializaIntegracaoContabil01(raw_.get(), "2.09", 1));
  EXPECT_FALSE(integracao->DLL_InicializaIntegracaoContabil01(raw_.get(), "2.08", 1));
  EXPECT_FALSE(integracao->DLL_InicializaIntegracaoContabil01(nullptr, "2.09", 1));
}

TEST_P(ServicesTest, DateLiteralsSuitTheServer) {
  DateTime d{2024, 1, 31, 12, 30, 15, 0};
  const std::string tipo(raw_->dialect().TipoBanco());
  EXPECT_EQ(Scalar(*raw_, "select count(*) N from GER_VERSAO_ESTRUTURA where " + DataPSql(d, tipo) +
                              " is not null")
                .AsInteger(),
            1);
  raw_->Execute(
      "insert into FAT_NUMERACAO_LIVROS (EMPRESA, REVENDA, ANOMES_APURACAO_RESULTADO) "
      "values (1, 1, " +
          DataPSql(d, tipo) + ")",
      {});
  raw_->Execute("insert into GER_LOG_CADASTROS (LOG_CADASTROS, DTA_ALTERACAO) values (1, " +
                    DataHoraPSql(d, tipo) + ")",
                {});
  EXPECT_EQ(Scalar(*raw_, "select ANOMES_APURACAO_RESULTADO from FAT_NUMERACAO_LIVROS")
                .AsDateTime()
                .ToIsoDate(),
            "2024-01-31");
  EXPECT_EQ(Scalar(*raw_, "select DTA_ALTERACAO from GER_LOG_CADASTROS").AsDateTime().ToIso(),
            "2024-01-31 12:30:15");
}

KVC_INSTANTIATE_BACKENDS(ServicesTest);

TEST(Zorutils, DateLiteralsPerServer) {
  DateTime d{2024, 1, 31, 12, 30, 15, 0};
  EXPECT_EQ(DataPSql(d, "SQLSERVER"), "'2024-01-31'");
  EXPECT_EQ(DataPSql(d, "ORACLE"), "TO_DATE('31/01/2024', 'DD/MM/YYYY')");
  EXPECT_EQ(DataPSql(d, "FIREBIRD"), "'2024-01-31'");
  EXPECT_EQ(DataHoraPSql(d, "SQLSERVER"), "'2024-01-31 12:30:15'");
  EXPECT_EQ(DataHoraPSql(d, "ORACLE"), "TO_DATE('31/01/2024 12:30:15', 'DD/MM/YYYY HH24:MI:SS')");
  EXPECT_EQ(DataHoraPSql(d, "POSTGRESQL"), "'2024-01-31 12:30:15'");
}

TEST(Zorutils, CompatBancoLeavesCommonDialectUnchanged) {
  for (const char* tipo : {"SQLSERVER", "ORACLE", "FIREBIRD", "POSTGRESQL", "SQLITE", "OUTRO"})
    EXPECT_EQ(CompatBanco("select 1 X", tipo, 1, false), "select 1 X") << tipo;
}

TEST(Zorutils, AjustaInSelectWrapsFieldAndList) {
  EXPECT_EQ(AjustaInSelect("{$ALIAS$}.HISTORICO_PADRAO is null) or ({$ALIAS$}.HISTORICO_PADRAO",
                           "1, 2,3", "not in", 0, 995),
            "({$ALIAS$}.HISTORICO_PADRAO is null) or ({$ALIAS$}.HISTORICO_PADRAO not in (1,2,3))");
  EXPECT_EQ(AjustaInSelect("X", "", "in", 0, 995), "");
  EXPECT_EQ(AjustaInSelect("X", "a,b", "in", 1, 995), "(X in ('a','b'))");
}

TEST(Zorutils, AjustaInSelectSplitsLongLists) {
  EXPECT_EQ(AjustaInSelect("X", "1,2,3,4,5", "not in", 0, 2),
            "(X not in (1,2) and X not in (3,4) and X not in (5))");
  EXPECT_EQ(AjustaInSelect("X", "1,2,3", "in", 0, 2), "(X in (1,2) or X in (3))");
}

}  // namespace
}  // namespace kvc::testing
