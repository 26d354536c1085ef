// Rebuilding a year's carried-forward balances in one transaction, on each
// database: the roll-up, the carry-forward of division combinations, and
// the all-or-nothing rule.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "accounting/db/error.h"
#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr char kCombinacoes2024[] =
    " select CSD.EMPRESA,        CSD.REVENDA,        CSD.CONTA,        CSD.REVENDA_DIVISAO,    "
    "    CSD.TIPO_ITEM,        CSD.CATEGORIA,        CSD.CENTRO_CUSTO,        CSD.MODALIDADE_OP"
    "ERACAO,        CSD.SECAO_OFICINA,        CSD.FONTE,        CSD.REVENDA_ORIGEM from CTB_SAL"
    "DO_ANTERIOR_DIVISAO CSD,      CTB_CONTA CCO where CSD.EMPRESA = 1 and   CSD.REVENDA = 1 an"
    "d   CSD.ANO     = 2023 and   CSD.SALDO is not null and   CSD.SALDO <> 0 and   CSD.EMPRESA "
    "= CCO.EMPRESA and   CSD.REVENDA = CCO.REVENDA and   CSD.CONTA   = CCO.CONTA and   CCO.NIVE"
    "L   = 'A' and  (CCO.LANCAMENTO_DIVIDIDO = 'S'    or  (CCO.CONTA not like '1%'     and CCO."
    "CONTA not like '2%')) and not exists (select EMPRESA                 from CTB_SALDO_ANTERI"
    "OR_DIVISAO CS1                 where CS1.EMPRESA             = CSD.EMPRESA                "
    " and   CS1.REVENDA             = CSD.REVENDA                 and   CS1.ANO                "
    " = 2024                 and   CS1.CONTA               = CSD.CONTA                 and   co"
    "alesce(CS1.REVENDA_DIVISAO,0)         = coalesce(CSD.REVENDA_DIVISAO,0)                 an"
    "d   coalesce(CS1.TIPO_ITEM,'9')           = coalesce(CSD.TIPO_ITEM,'9')                 an"
    "d   coalesce(CS1.CATEGORIA,0)               = coalesce(CSD.CATEGORIA,0)                 an"
    "d   coalesce(CS1.CENTRO_CUSTO,0)            = coalesce(CSD.CENTRO_CUSTO,0)                "
    " and   coalesce(CS1.MODALIDADE_OPERACAO,'9') = coalesce(CSD.MODALIDADE_OPERACAO,'9')      "
    "           and   coalesce(CS1.SECAO_OFICINA,0)           = coalesce(CSD.SECAO_OFICINA,0)  "
    "               and   coalesce(CS1.FONTE,0)                   = coalesce(CSD.FONTE,0)      "
    "           and   coalesce(CS1.REVENDA_ORIGEM,0)          = coalesce(CSD.REVENDA_ORIGEM,0))"
    " and exists (select EMPRESA             from CTB_SALDO_ANTERIOR CSA                 where "
    "CSA.EMPRESA             = CSD.EMPRESA                 and   CSA.REVENDA             = CSD."
    "REVENDA                 and   CSA.ANO                 = 2009                 and   CSA.CON"
    "TA               = CSD.CONTA) and (CSD.REVENDA_DIVISAO is not null   or CSD.TIPO_ITEM is n"
    "ot null   or CSD.CATEGORIA is not null   or CSD.CENTRO_CUSTO is not null   or CSD.MODALIDA"
    "DE_OPERACAO is not null   or CSD.SECAO_OFICINA is not null   or CSD.FONTE is not null   or"
    " CSD.REVENDA_ORIGEM is not null) order by 1, 2, 3 ";

class RecompoeSaldoAnteriorTest : public ModuleTest {
 protected:
  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel,
             const std::string& dividido = "N") {
    DadosDeTeste(*raw_).Conta(
        conta,
        {.superiora = NuloSeVazio(superiora), .nivel = nivel, .lancamento_dividido = dividido});
  }
  void Saldo(const std::string& conta, int ano, double saldo) {
    DadosDeTeste(*raw_).SaldoAnterior(conta, ano, saldo);
  }
  // `rd` and `origem` are numbers, or "null".
  void SaldoDivisao(const std::string& conta, int ano, double saldo, const std::string& rd,
                    const std::string& origem = "null") {
    auto numero = [](const std::string& v) {
      return v == "null" ? std::nullopt : std::optional<int>(std::stoi(v));
    };
    DadosDeTeste(*raw_).SaldoAnteriorDivisao(
        ++sequencia_, conta, ano, saldo,
        {.revenda_divisao = numero(rd), .revenda_origem = numero(origem)});
  }
  std::vector<Linha> Tabelas() {
    auto a = Linhas(*raw_, "select CONTA, ANO, SALDO from CTB_SALDO_ANTERIOR order by CONTA, ANO");
    auto b = Linhas(*raw_,
                    "select CONTA, ANO, REVENDA_DIVISAO, REVENDA_ORIGEM, SALDO from "
                    "CTB_SALDO_ANTERIOR_DIVISAO order by CONTA, ANO, REVENDA_DIVISAO, "
                    "SALDO");
    a.insert(a.end(), b.begin(), b.end());
    return a;
  }
  int sequencia_ = 500;
};

TEST_P(RecompoeSaldoAnteriorTest, RollsUpInOneTransactionWithTheColumnlessInsert) {
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Conta("1.2", "1", "A");
  Saldo("1.1", 2024, 10);
  Saldo("1.2", 2024, 2.5);
  Bind();
  trace_->Clear();
  EXPECT_TRUE(dm_->RecompoeSaldoAnterior("2024"));
  EXPECT_EQ(Linhas(*raw_, "select CONTA, SALDO from CTB_SALDO_ANTERIOR order by CONTA"),
            (std::vector<Linha>{{"1", "12.50"}, {"1.1", "10.00"}, {"1.2", "2.50"}}));
  const auto s = trace_->Statements();
  EXPECT_EQ(
      s.at(0),
      " delete from ctb_saldo_anterior  where empresa = 1 and   revenda = 1 and   ano = 2024 "
      "and   conta not in (select conta from ctb_conta where        empresa = 1 and   revenda "
      "= 1 and   nivel = 'A')");
  EXPECT_NE(std::find(s.begin(), s.end(), "insert into ctb_saldo_anterior values(1,1,'1',2024,10)"),
            s.end());
  EXPECT_EQ(trace_->Trace().front().kind, db::TracedStatement::Kind::kBegin);
  EXPECT_EQ(trace_->Trace().back().kind, db::TracedStatement::Kind::kCommit);
}

TEST_P(RecompoeSaldoAnteriorTest, YearWithoutAnalyticRowsOnlyDeletes) {
  Conta("1", "", "S");
  Saldo("1", 2024, 99);
  Bind();
  trace_->Clear();
  EXPECT_TRUE(dm_->RecompoeSaldoAnterior("2024"));
  size_t escritas = 0;
  for (const auto& t : trace_->Trace())
    if (t.kind == db::TracedStatement::Kind::kExecute) ++escritas;
  EXPECT_EQ(escritas, 1u);
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 0);
}

TEST_P(RecompoeSaldoAnteriorTest, FailureOfAnyStatementLeavesBothTablesAsTheyWere) {
  Conta("2", "", "S");
  Conta("2.1", "2", "A", "S");
  Conta("2.2", "2", "A");
  Saldo("2.1", 2024, 10);
  Saldo("2.2", 2024, 5);
  Saldo("2", 2024, 77);
  SaldoDivisao("2.1", 2024, 4, "3");
  SaldoDivisao("2.2", 2024, 6, "3");
  Bind();
  const auto antes = Tabelas();
  for (bool divisao : {false, true}) {
    trace_->ClearFaults();
    trace_->Clear();
    ASSERT_TRUE(divisao ? dm_->RecompoeSaldoAnteriorDivisao("2024")
                        : dm_->RecompoeSaldoAnterior("2024"));
    const size_t enviados = trace_->Statements().size();
    raw_->Execute("delete from CTB_SALDO_ANTERIOR", {});
    raw_->Execute("delete from CTB_SALDO_ANTERIOR_DIVISAO", {});
    raw_->Execute("delete from GER_NUMERADOR", {});
    Saldo("2.1", 2024, 10);
    Saldo("2.2", 2024, 5);
    Saldo("2", 2024, 77);
    SaldoDivisao("2.1", 2024, 4, "3");
    SaldoDivisao("2.2", 2024, 6, "3");
    for (size_t k = 1; k <= enviados; ++k) {
      trace_->FailNth(k, "falha injetada");
      EXPECT_FALSE(divisao ? dm_->RecompoeSaldoAnteriorDivisao("2024")
                           : dm_->RecompoeSaldoAnterior("2024"))
          << (divisao ? "division" : "plain") << " statement " << k;
      EXPECT_EQ(Tabelas(), antes) << (divisao ? "division" : "plain") << " statement " << k;
      EXPECT_FALSE(raw_->InTransaction());
    }
  }
}

TEST_P(RecompoeSaldoAnteriorTest, SelfSuperiorAccountWalksUntilStoppedAndRollsBack) {
  Conta("7", "7", "A");
  Saldo("7", 2024, 1);
  Bind();
  size_t enviados = 0;
  trace_->SetSink([&enviados](const db::TracedStatement&) {
    if (++enviados > 300) throw db::DatabaseError("statement budget exhausted", "");
  });
  EXPECT_FALSE(dm_->RecompoeSaldoAnterior("2024"));
  EXPECT_GT(enviados, 300u);
  EXPECT_EQ(Linhas(*raw_, "select CONTA, SALDO from CTB_SALDO_ANTERIOR"),
            (std::vector<Linha>{{"7", "1.00"}}));
}

TEST_P(RecompoeSaldoAnteriorTest, DivisionCombinationsOfThePreviousYearAreCarriedWhenTheyQualify) {
  Conta("1.9", "", "A", "S");  // balance-sheet, always divided: carried
  Conta("1.8", "", "A", "N");  // balance-sheet, not divided: not carried
  Conta("3.1", "", "A");       // result account: carried
  Conta("3.2", "", "A");       // zero balance: not carried
  Conta("3.3", "", "A");       // no 2009 row: never carried
  Conta("3.4", "", "A");       // already present in 2024 with 0 for null: not carried
  Conta("3.5", "", "A");       // already present in 2024 with null for 0: not carried
  for (const char* c : {"1.9", "1.8", "3.1", "3.2", "3.4", "3.5"}) Saldo(c, 2009, 1);
  SaldoDivisao("1.9", 2023, 5, "2");
  SaldoDivisao("1.8", 2023, 5, "2");
  SaldoDivisao("3.1", 2023, 7, "2", "4");
  SaldoDivisao("3.2", 2023, 0, "2");
  SaldoDivisao("3.3", 2023, 9, "2");
  SaldoDivisao("3.4", 2023, 9, "2");       // REVENDA_ORIGEM null in 2023
  SaldoDivisao("3.4", 2024, 3, "2", "0");  // 0 in 2024 counts as its counterpart
  SaldoDivisao("3.5", 2023, 9, "2", "0");  // REVENDA_ORIGEM 0 in 2023
  SaldoDivisao("3.5", 2024, 4, "2");       // null in 2024 counts as its counterpart
  Bind();
  trace_->Clear();
  EXPECT_TRUE(dm_->RecompoeSaldoAnteriorDivisao("2024"));
  EXPECT_EQ(Linhas(*raw_,
                   "select CONTA, REVENDA_DIVISAO, REVENDA_ORIGEM, SALDO from "
                   "CTB_SALDO_ANTERIOR_DIVISAO where ANO = 2024 order by CONTA"),
            (std::vector<Linha>{{"1.9", "2", "NULL", "0.00"},
                                {"3.1", "2", "4", "0.00"},
                                {"3.4", "2", "0", "3.00"},
                                {"3.5", "2", "NULL", "4.00"}}));
  const auto s = trace_->Statements();
  EXPECT_NE(std::find(s.begin(), s.end(), kCombinacoes2024), s.end());
}

KVC_INSTANTIATE_BACKENDS(RecompoeSaldoAnteriorTest);

}  // namespace
}  // namespace kvc::testing
