// The division split of an entry on each database: whether the entry keeps
// its cost centre (account level, division types, balance-sheet groups), the
// two summarised-balance updates, the one division row with its per-instance
// sequence, and what happens when a balance update is refused or the row
// cannot be written.
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"
#include "accounting/services/service_libraries.h"
#include "support/dados_teste.h"
#include "support/fake_libraries.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr char kSelectConta[] =
    " select coalesce(NIVEL_DIVISAO,0) NIVEL_DIVISAO,         LANCAMENTO_DIVIDIDO,         "
    "CONTA     from CTB_CONTA    where EMPRESA = ";
constexpr char kInsertDivisao[] =
    "insert into ctb_lancamento_dividido                        (SEQUENCIA, EMPRESA, REVENDA, "
    "ANO_MES, LANCAMENTO,         CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA,            "
    "TIPO_ITEM, MODALIDADE_OPERACAO, REVENDA_DIVISAO,          REVENDA_ORIGEM,         "
    "VAL_DIVISAO)       values ( ";

constexpr char kSelectDivisoes[] =
    "select SEQUENCIA, EMPRESA, REVENDA, ANO_MES, LANCAMENTO, CENTRO_CUSTO, FONTE, CATEGORIA, "
    "SECAO_OFICINA, TIPO_ITEM, MODALIDADE_OPERACAO, REVENDA_DIVISAO, REVENDA_ORIGEM, VAL_DIVISAO "
    "from CTB_LANCAMENTO_DIVIDIDO order by SEQUENCIA";
constexpr char kSelectSaldos[] =
    "select TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, REVENDA, ANO_MES, DIVISAO1, "
    "DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO from INT_SALDO_SUMARIZADO "
    "order by TIPO_SALDO, CONTA, NATUREZA";

std::string InsertDivisao(const std::string& valores) { return kInsertDivisao + valores + ")"; }

// The integration library of the module, except that it refuses every
// summarised-balance update of one kind ("L" or "D").
class IntegracaoQueRecusa final : public ForwardingIntegracao01 {
 public:
  explicit IntegracaoQueRecusa(std::string tipo_recusado)
      : tipo_recusado_(std::move(tipo_recusado)) {}

  bool DLL_AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& t1,
                                   const std::string& t2, const std::string& t3,
                                   const std::string& t4, const std::string& t5,
                                   const std::string& t6, int32_t i1, int32_t i2, int32_t i3,
                                   int32_t i4, int32_t i5, int32_t i6, int32_t i7, int32_t i8,
                                   double valor, int32_t handle) override {
    if (t1 == tipo_recusado_) return false;
    return ForwardingIntegracao01::DLL_AtualizaSaldoSumarizado(
        conexao, t1, t2, t3, t4, t5, t6, i1, i2, i3, i4, i5, i6, i7, i8, valor, handle);
  }

 private:
  std::string tipo_recusado_;
};

class LancaDivisaoTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    if (!raw_) return;
    host_.revenda_aplicacao = 8;
  }

  // Binds a module whose integration library refuses updates of one kind.
  void BindRecusando(const std::string& tipo) {
    dm_ = std::make_unique<TddmContabilidadeBD>();
    dm_->SetServiceLibraries(NewGeral01(), std::make_unique<IntegracaoQueRecusa>(tipo));
    dm_->AtualizaTAplicacao(host_, trace_.get(), 1);
    dm_->SetaSQLConnection();
  }

  // An account of company 1, dealership 1; nullopt writes NULL.
  void Conta(const std::string& conta, std::optional<int> nivel,
             std::optional<std::string> dividido) {
    DadosDeTeste(*raw_).Conta(conta, {.nivel_divisao = nivel, .lancamento_dividido = dividido});
  }

  void Divisao(int empresa, int revenda, int nivel, const std::string& tipo) {
    DadosDeTeste(*raw_, empresa, revenda).DivisaoContabil(nivel, tipo);
  }

  // Splits entry 17 of company 1, dealership 1, May 2024 for division
  // dealership 9.
  [[nodiscard]] bool Lanca(const std::string& codigo, const std::string& conta,
                           const std::string& natureza = "C", double valor = 123.45) {
    return dm_->LancaDivisao("1", "1", "202405", "17", codigo, conta, natureza, "9", valor);
  }

  // CENTRO_CUSTO of each division row, in sequence order.
  std::vector<Linha> CentrosCusto() {
    return Linhas(*raw_, "select CENTRO_CUSTO from CTB_LANCAMENTO_DIVIDIDO order by SEQUENCIA");
  }

  // The cost centre (DIVISAO1) of each division balance of `conta`.
  std::vector<Linha> CentrosCustoSaldo(const std::string& conta) {
    return Linhas(*raw_,
                  "select DIVISAO1 from INT_SALDO_SUMARIZADO where TIPO_SALDO = 'D' and CONTA = " +
                      sql::Quoted(conta));
  }

  // The statements of the module itself, without those of the integration
  // library.
  std::vector<SqlEnviado> StatementsDoModulo() const {
    std::vector<SqlEnviado> out;
    for (const auto& s : trace_->Statements())
      if (s.find("INT_SALDO_SUMARIZADO") == std::string::npos) out.push_back(s);
    return out;
  }
};

TEST_P(LancaDivisaoTest, ResultAccountSendsTheAccountQueryAndTheDivisionRow) {
  Bind();
  Conta("3101001", 0, "N");
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_EQ(
      StatementsDoModulo(),
      (std::vector<std::string>{
          " select coalesce(NIVEL_DIVISAO,0) NIVEL_DIVISAO,         LANCAMENTO_DIVIDIDO,         "
          "CONTA     from CTB_CONTA    where EMPRESA = 1     and REVENDA = 1     and CONTA = "
          "'3101001'",
          "insert into ctb_lancamento_dividido                        (SEQUENCIA, EMPRESA, "
          "REVENDA, ANO_MES, LANCAMENTO,         CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA,  "
          "          TIPO_ITEM, MODALIDADE_OPERACAO, REVENDA_DIVISAO,          REVENDA_ORIGEM,    "
          "     VAL_DIVISAO)       values ( 1, 1, 1, 202405, 17, 12, NULL, NULL, NULL, NULL, "
          "NULL, 9, 8, 123.45)"}));
  EXPECT_EQ(Linhas(*raw_, kSelectDivisoes),
            (std::vector<Linha>{{"1", "1", "1", "202405", "17", "12", "NULL", "NULL", "NULL",
                                 "NULL", "NULL", "9", "8", "123.45"}}));
}

TEST_P(LancaDivisaoTest, SummarisedBalancesReceiveTheEntryAndItsDivision) {
  Bind();
  Conta("3101001", 0, "N");
  EXPECT_TRUE(Lanca("12", "3101001", "D", 50.25));
  EXPECT_EQ(Linhas(*raw_, kSelectSaldos),
            (std::vector<Linha>{{"D", "", "", "3101001", "D", "1", "1", "202405", "12", "-1", "-1",
                                 "-1", "9", "50.25"},
                                {"L", "", "", "3101001", "D", "1", "1", "202405", "-1", "-1", "-1",
                                 "-1", "-1", "50.25"}}));
}

TEST_P(LancaDivisaoTest, BalanceSheetAccountAlwaysDividedKeepsItsCostCentre) {
  Bind();
  Conta("1101001", 0, "S");
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "1101001"));
  EXPECT_EQ(StatementsDoModulo().back(),
            InsertDivisao("1, 1, 1, 202405, 17, 12, NULL, NULL, NULL, NULL, NULL, 9, 8, 123.45"));
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>{{"12"}}));
  EXPECT_EQ(CentrosCustoSaldo("1101001"), (std::vector<Linha>{{"12"}}));
}

TEST_P(LancaDivisaoTest, BalanceSheetAccountWithoutDividedFlagLosesCostCentre) {
  Bind();
  Conta("1101001", 0, "N");
  Conta("1101002", 0, std::nullopt);
  Conta("1101003", 0, "s");
  Conta("2101001", 0, "N");
  Conta("2101002", 0, "");
  trace_->Clear();
  for (const char* conta : {"1101001", "1101002", "1101003", "2101001", "2101002"}) {
    SCOPED_TRACE(conta);
    EXPECT_TRUE(Lanca("12", conta));
    EXPECT_EQ(CentrosCustoSaldo(conta), (std::vector<Linha>{{"-1"}}))
        << "-1 in the second summarised-balance call";
  }
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>(5, Linha{"NULL"})));
  EXPECT_EQ(StatementsDoModulo().back(),
            InsertDivisao("5, 1, 1, 202405, 17, NULL, NULL, NULL, NULL, NULL, NULL, 9, 8, "
                          "123.45"));
}

TEST_P(LancaDivisaoTest, ResultAccountOfLevelZeroKeepsItsCostCentreWithoutLookingAtDivisions) {
  Bind();
  Conta("3101001", 0, "N");
  Conta("3101002", std::nullopt, std::nullopt);
  Divisao(1, 1, 1, "F");  // no cost-centre division at all
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_TRUE(Lanca("13", "3101002"));
  for (const auto& s : trace_->Statements())
    EXPECT_EQ(s.find("CTB_DIVISAO_CONTABIL"), std::string::npos) << s;
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>{{"12"}, {"13"}}));
  EXPECT_EQ(CentrosCustoSaldo("3101001"), (std::vector<Linha>{{"12"}}));
}

TEST_P(LancaDivisaoTest, AccountOfLevelTwoWithoutCostCentreDivisionLosesItsCostCentre) {
  Bind();
  Conta("3101001", 2, "S");
  Divisao(1, 1, 1, "F");
  Divisao(1, 1, 2, "S");
  Divisao(1, 1, 3, "C");  // above the account's level
  Divisao(2, 1, 1, "C");  // another company
  Divisao(1, 2, 1, "C");  // another dealership
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_EQ(StatementsDoModulo(),
            (std::vector<std::string>{
                std::string(kSelectConta) + "1     and REVENDA = 1     and CONTA = '3101001'",
                "select TIPO_DIVISAO  from CTB_DIVISAO_CONTABIL  where  EMPRESA = 1 and    "
                "REVENDA = 1 and    NIVEL <= 2",
                InsertDivisao("1, 1, 1, 202405, 17, NULL, NULL, NULL, NULL, NULL, NULL, 9, 8, "
                              "123.45")}));
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>{{"NULL"}}));
  EXPECT_EQ(CentrosCustoSaldo("3101001"), (std::vector<Linha>{{"-1"}}));
}

TEST_P(LancaDivisaoTest, AccountOfLevelTwoWithCostCentreDivisionKeepsIt) {
  Bind();
  Conta("3101001", 2, "N");
  Divisao(1, 1, 1, "F");
  Divisao(1, 1, 2, "C");
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>{{"12"}}));
  EXPECT_EQ(CentrosCustoSaldo("3101001"), (std::vector<Linha>{{"12"}}));
}

TEST_P(LancaDivisaoTest, CostCentreDivisionDoesNotSaveABalanceSheetAccount) {
  Bind();
  Conta("1101001", 1, "N");
  Divisao(1, 1, 1, "C");
  EXPECT_TRUE(Lanca("12", "1101001"));
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>{{"NULL"}}));
}

TEST_P(LancaDivisaoTest, EmptyDivisionCodeWritesNullWhateverTheAccount) {
  Bind();
  Conta("3101001", 0, "N");
  Conta("3101002", 1, "S");
  Conta("1101001", 0, "S");
  Divisao(1, 1, 1, "C");
  for (const char* conta : {"3101001", "3101002", "1101001", "9999999"}) {
    SCOPED_TRACE(conta);
    EXPECT_TRUE(Lanca("", conta));
    EXPECT_EQ(CentrosCustoSaldo(conta), (std::vector<Linha>{{"-1"}}));
  }
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>(4, Linha{"NULL"})));
}

TEST_P(LancaDivisaoTest, UnknownAccountRaisesNothingAndKeepsItsCostCentre) {
  Bind();
  // The group is taken from the account read from CTB_CONTA: an account that
  // is not there has none, even when its code starts with "1".
  EXPECT_TRUE(Lanca("12", "1109999"));
  EXPECT_TRUE(Lanca("13", "O'Brien"));
  EXPECT_EQ(CentrosCusto(), (std::vector<Linha>{{"12"}, {"13"}}));
}

TEST_P(LancaDivisaoTest, AccountIsQuotedWithInnerQuotesDoubled) {
  Bind();
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "O'Brien"));
  EXPECT_EQ(StatementsDoModulo().front(),
            std::string(kSelectConta) + "1     and REVENDA = 1     and CONTA = 'O''Brien'");
}

TEST_P(LancaDivisaoTest, SameInstanceGivesConsecutiveSequences) {
  Bind();
  EXPECT_EQ(dm_->ContadorDivisao(), 0);
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_TRUE(dm_->LancaDivisao("1", "1", "202405", "18", "", "3101001", "D", "9", 1));
  EXPECT_TRUE(dm_->LancaDivisao("2", "3", "202406", "1", "", "3101001", "C", "9", 2));
  EXPECT_EQ(dm_->ContadorDivisao(), 3);
  EXPECT_EQ(Linhas(*raw_,
                   "select SEQUENCIA, EMPRESA, LANCAMENTO from CTB_LANCAMENTO_DIVIDIDO "
                   "order by SEQUENCIA"),
            (std::vector<Linha>{{"1", "1", "17"}, {"2", "1", "18"}, {"3", "2", "1"}}));
}

TEST_P(LancaDivisaoTest, NewModuleInstanceRestartsDivisionSequence) {
  Bind();
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_TRUE(Lanca("12", "3101001"));
  dm_->LimpaSQLConnection();
  Bind();
  EXPECT_EQ(dm_->ContadorDivisao(), 0);
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_EQ(StatementsDoModulo().back(),
            InsertDivisao("1, 1, 1, 202405, 17, 12, NULL, NULL, NULL, NULL, NULL, 9, 8, 123.45"));
  EXPECT_EQ(Column(*raw_, "select SEQUENCIA from CTB_LANCAMENTO_DIVIDIDO order by SEQUENCIA"),
            (std::vector<std::string>{"1", "1", "2"}));
}

TEST_P(LancaDivisaoTest, AmountIsWrittenWithTwoDecimalsAndNoThousandsSeparator) {
  Bind();
  trace_->Clear();
  EXPECT_TRUE(Lanca("12", "3101001", "C", 1234.5));
  EXPECT_TRUE(Lanca("12", "3101001", "C", 1234567.891));
  EXPECT_EQ(StatementsDoModulo()[1],
            InsertDivisao("1, 1, 1, 202405, 17, 12, NULL, NULL, NULL, NULL, NULL, 9, 8, 1234.50"));
  EXPECT_EQ(StatementsDoModulo()[3],
            InsertDivisao("2, 1, 1, 202405, 17, 12, NULL, NULL, NULL, NULL, NULL, 9, 8, "
                          "1234567.89"));
  EXPECT_EQ(Linhas(*raw_, "select VAL_DIVISAO from CTB_LANCAMENTO_DIVIDIDO order by SEQUENCIA"),
            (std::vector<Linha>{{"1234.50"}, {"1234567.89"}}));
}

TEST_P(LancaDivisaoTest, DebitAmountIsWrittenWithoutASign) {
  Bind();
  EXPECT_TRUE(Lanca("12", "3101001", "D", 75.5));
  EXPECT_EQ(Linhas(*raw_, "select VAL_DIVISAO from CTB_LANCAMENTO_DIVIDIDO"),
            (std::vector<Linha>{{"75.50"}}));
  EXPECT_EQ(Linhas(*raw_, "select NATUREZA, SALDO from INT_SALDO_SUMARIZADO order by TIPO_SALDO"),
            (std::vector<Linha>{{"D", "75.50"}, {"D", "75.50"}}));
}

TEST_P(LancaDivisaoTest, RefusedEntryBalanceStopsBeforeTheDivisionBalance) {
  BindRecusando("L");
  trace_->Clear();
  EXPECT_FALSE(Lanca("12", "3101001"));
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(dm_->ContadorDivisao(), 0) << "no division row was numbered";
  EXPECT_EQ(StatementsDoModulo().size(), 1u) << "only the account query ran";
}

TEST_P(LancaDivisaoTest, RefusedDivisionBalanceKeepsTheEntryBalanceAndWritesNoRow) {
  BindRecusando("D");
  EXPECT_FALSE(Lanca("12", "3101001"));
  EXPECT_EQ(Linhas(*raw_, "select TIPO_SALDO, CONTA, SALDO from INT_SALDO_SUMARIZADO"),
            (std::vector<Linha>{{"L", "3101001", "123.45"}}))
      << "the first call's effect is not undone";
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(dm_->ContadorDivisao(), 0);
}

TEST_P(LancaDivisaoTest, SummarisedBalanceErrorReachesTheCaller) {
  Bind();
  trace_->FailMatching("INT_SALDO_SUMARIZADO");
  EXPECT_THROW((void)Lanca("12", "3101001"), db::DatabaseError);
  trace_->ClearFaults();
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(dm_->ContadorDivisao(), 0);
}

TEST_P(LancaDivisaoTest, FailedDivisionRowIsSwallowedAndBalancesStayUpdated) {
  Bind();
  trace_->FailMatching("insert into ctb_lancamento_dividido");
  EXPECT_FALSE(Lanca("12", "3101001"));
  trace_->ClearFaults();
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(Linhas(*raw_, "select TIPO_SALDO, SALDO from INT_SALDO_SUMARIZADO order by TIPO_SALDO"),
            (std::vector<Linha>{{"D", "123.45"}, {"L", "123.45"}}));
  // The failed row used up its sequence number.
  EXPECT_EQ(dm_->ContadorDivisao(), 1);
  EXPECT_TRUE(Lanca("12", "3101001"));
  EXPECT_EQ(Column(*raw_, "select SEQUENCIA from CTB_LANCAMENTO_DIVIDIDO"),
            (std::vector<std::string>{"2"}));
}

TEST_P(LancaDivisaoTest, NonNumericDivisionCodeRaisesBeforeAnyStatement) {
  Bind();
  trace_->Clear();
  EXPECT_THROW((void)Lanca("A1", "3101001"), std::invalid_argument);
  EXPECT_TRUE(trace_->Statements().empty());
}

TEST_P(LancaDivisaoTest, NonNumericDivisionDealershipRaisesAndWritesNoRow) {
  Bind();
  EXPECT_THROW((void)dm_->LancaDivisao("1", "1", "202405", "17", "12", "3101001", "C", "x", 123.45),
               std::invalid_argument);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(dm_->ContadorDivisao(), 0);
}

TEST_P(LancaDivisaoTest, NonNumericMonthRaisesBeforeAnyBalance) {
  Bind();
  EXPECT_THROW(
      (void)dm_->LancaDivisao("1", "1", "2024-05", "17", "12", "3101001", "C", "9", 123.45),
      std::invalid_argument);
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
}

KVC_INSTANTIATE_BACKENDS(LancaDivisaoTest);

}  // namespace
}  // namespace kvc::testing
