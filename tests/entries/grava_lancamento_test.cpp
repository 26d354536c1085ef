// Posting interface records on each database: GravaLancamento writes a
// credit entry and a debit entry pointing at it, GravaLancamentoSAP one side
// per call linked through the caller's variable. The exact insert statements
// are checked through the trace, and the rows in CTB_LANCAMENTO,
// CTB_LANCAMENTO_DIVIDIDO, INT_SALDO_SUMARIZADO and GER_NUMERADOR.
#include <gtest/gtest.h>

#include <clocale>
#include <locale>
#include <stdexcept>
#include <string>
#include <vector>

#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"
#include "accounting/entries/registro_interface.h"
#include "support/dados_teste.h"
#include "support/records.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

// The entry insert up to its values, as the module sends it.
constexpr char kInsertLancamento[] =
    " insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
    "LCO_ORIGEM,            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,              "
    "VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,          LCO_OK, OPERACAO, "
    "REVENDA_OPERACAO)                   values ( ";
constexpr char kInsertDivisao[] = "insert into ctb_lancamento_dividido ";
constexpr char kSelectConta[] = " select coalesce(NIVEL_DIVISAO,0) NIVEL_DIVISAO,";

constexpr char kSelectLancamentos[] =
    "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO, LCO_ORIGEM, USUARIO, CONTA, "
    "HISTORICO_PADRAO, DIA, NATUREZA, VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO, "
    "LCO_OK, OPERACAO, REVENDA_OPERACAO from CTB_LANCAMENTO order by LANCAMENTO";
constexpr char kSelectDivisoes[] =
    "select SEQUENCIA, LANCAMENTO, CENTRO_CUSTO, REVENDA_DIVISAO, REVENDA_ORIGEM, VAL_DIVISAO "
    "from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO";
constexpr char kSelectSaldos[] =
    "select TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, REVENDA, ANO_MES, DIVISAO1, "
    "DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO from INT_SALDO_SUMARIZADO "
    "order by TIPO_SALDO, NATUREZA";

// The entry insert with `valores` as they follow "values ( ".
std::string InsertLancamento(const std::string& valores) {
  return kInsertLancamento + valores + ")";
}

// The statements of the trace that begin with `inicio`.
std::vector<SqlEnviado> ComecamCom(const std::vector<SqlEnviado>& statements,
                                   const std::string& inicio) {
  std::vector<SqlEnviado> out;
  for (const auto& s : statements)
    if (ComecaCom(s, inicio)) out.push_back(s);
  return out;
}

// Switches the process to the Brazilian locale, whose decimal separator is a
// comma, and back to "C" at the end of the scope.
class LocaleComVirgula {
 public:
  LocaleComVirgula() {
    try {
      std::locale::global(std::locale("pt_BR.UTF-8"));
      ativo_ = std::setlocale(LC_ALL, "pt_BR.UTF-8") != nullptr;
    } catch (const std::runtime_error&) {
      ativo_ = false;
    }
  }
  ~LocaleComVirgula() {
    std::locale::global(std::locale::classic());
    std::setlocale(LC_ALL, "C");
  }
  bool Ativo() const { return ativo_; }

 private:
  bool ativo_ = false;
};

class GravaLancamentoTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    if (!raw_) return;
    host_.codigo_usuario = 7;
    host_.revenda_aplicacao = 8;
  }

  // A result account and a balance-sheet account, both of level 0 and not
  // always divided.
  void CriaContas() {
    DadosDeTeste(*raw_)
        .Conta("3101001", {.nivel_divisao = 0, .lancamento_dividido = "N"})
        .Conta("1101001", {.nivel_divisao = 0, .lancamento_dividido = "N"});
  }

  // Posts one record in a committed transaction.
  void Grava(const std::string& registro, bool codigo_na_conta = false,
             const std::string& documento = "4711") {
    ASSERT_TRUE(dm_->IniciaTransacao());
    dm_->GravaLancamento(registro, "1", "1", documento, "9", codigo_na_conta);
    ASSERT_TRUE(dm_->ComitaTransacao());
  }

  std::vector<SqlEnviado> Inserts() const {
    return ComecamCom(trace_->Statements(), kInsertLancamento);
  }
};

TEST_P(GravaLancamentoTest, MinusMarkCreditsFirstAccountField) {
  Bind();
  RegistroCampos campos;
  campos.marca = "-";
  campos.conta1 = "3101001";
  campos.conta2 = "1101001";
  campos.historico_padrao = "45";
  trace_->Clear();
  Grava(Registro(campos));
  EXPECT_EQ(Inserts(),
            (std::vector<std::string>{
                InsertLancamento("1, 1, 202405, 1, NULL, 7, '3101001', 45, 15, 'C', 123.45, 'O', "
                                 "'Venda balcao', 4711, 'N', NULL, 1"),
                InsertLancamento("1, 1, 202405, 2, 1, 7, '1101001', 45, 15, 'D', 123.45, 'O', "
                                 "'Venda balcao', 4711, 'N', NULL, 1")}));
  EXPECT_EQ(Linhas(*raw_, kSelectLancamentos),
            (std::vector<Linha>{{"1", "1", "202405", "1", "NULL", "7", "3101001", "45", "15", "C",
                                 "123.45", "O", "Venda balcao", "4711", "N", "NULL", "1"},
                                {"1", "1", "202405", "2", "1", "7", "1101001", "45", "15", "D",
                                 "123.45", "O", "Venda balcao", "4711", "N", "NULL", "1"}}));
}

TEST_P(GravaLancamentoTest, AnyOtherMarkCreditsSecondAccountField) {
  Bind();
  for (const std::string marca : {"+", " ", "C", "D"}) {
    SCOPED_TRACE("mark '" + marca + "'");
    RegistroCampos campos;
    campos.marca = marca;
    campos.conta1 = "3101001";
    campos.conta2 = "1101001";
    Grava(Registro(campos));
  }
  EXPECT_EQ(
      Column(*raw_, "select CONTA from CTB_LANCAMENTO where NATUREZA = 'C' order by LANCAMENTO"),
      (std::vector<std::string>(4, "1101001")));
  EXPECT_EQ(
      Column(*raw_, "select CONTA from CTB_LANCAMENTO where NATUREZA = 'D' order by LANCAMENTO"),
      (std::vector<std::string>(4, "3101001")));
}

TEST_P(GravaLancamentoTest, AmountDigits12345WithLeadingZerosAreWrittenAs123Point45) {
  Bind();
  std::string registro = Registro(RegistroCampos());
  registro.replace(118, 15, "000000000012345");
  trace_->Clear();
  Grava(registro);
  const auto inserts = Inserts();
  ASSERT_EQ(inserts.size(), 2u);
  for (const auto& s : inserts) EXPECT_NE(s.find(", 123.45, 'O', "), std::string::npos) << s;
  EXPECT_EQ(Column(*raw_, "select VAL_LANCAMENTO from CTB_LANCAMENTO order by LANCAMENTO").size(),
            2u);
  for (const auto& linha : Linhas(*raw_, kSelectLancamentos)) EXPECT_EQ(linha[10], "123.45");
  for (const auto& linha : Linhas(*raw_, kSelectDivisoes)) EXPECT_EQ(linha[5], "123.45");
}

TEST_P(GravaLancamentoTest, CreditEntryHasNullOriginAndDebitCarriesCreditNumber) {
  Bind();
  // Numbers of an earlier posting of the month, so that the pair does not
  // start at 1.
  Grava(Registro(RegistroCampos()));
  Grava(Registro(RegistroCampos()));
  EXPECT_EQ(Linhas(*raw_,
                   "select LANCAMENTO, LCO_ORIGEM, NATUREZA from CTB_LANCAMENTO "
                   "order by LANCAMENTO"),
            (std::vector<Linha>{
                {"1", "NULL", "C"}, {"2", "1", "D"}, {"3", "NULL", "C"}, {"4", "3", "D"}}));
}

TEST_P(GravaLancamentoTest, EntriesAreNumberedUnderTheKeyOfTheirMonth) {
  Bind();
  RegistroCampos maio;
  maio.yymm = "2405";
  RegistroCampos junho;
  junho.yymm = "2406";
  Grava(Registro(maio));
  Grava(Registro(junho));
  Grava(Registro(maio));
  EXPECT_EQ(Linhas(*raw_,
                   "select EMPRESA, REVENDA, CHAVE, ULTIMO_NUMERO from GER_NUMERADOR "
                   "where TABELA = 'CTB_LANCAMENTO' order by CHAVE"),
            (std::vector<Linha>{{"1", "1", "LCTO202405", "4"}, {"1", "1", "LCTO202406", "2"}}));
  EXPECT_EQ(Linhas(*raw_,
                   "select ANO_MES, LANCAMENTO, LCO_ORIGEM from CTB_LANCAMENTO "
                   "order by ANO_MES, LANCAMENTO"),
            (std::vector<Linha>{{"202405", "1", "NULL"},
                                {"202405", "2", "1"},
                                {"202405", "3", "NULL"},
                                {"202405", "4", "3"},
                                {"202406", "1", "NULL"},
                                {"202406", "2", "1"}}));
}

TEST_P(GravaLancamentoTest, CreditEntryIsWrittenAndSplitBeforeTheDebitIsNumbered) {
  Bind();
  CriaContas();
  trace_->Clear();
  Grava(Registro(RegistroCampos()));
  std::vector<std::string> passos;
  for (const auto& s : trace_->Statements()) {
    std::string passo = s.find("GER_NUMERADOR") != std::string::npos          ? "number"
                        : ComecaCom(s, kInsertLancamento)                     ? "entry"
                        : ComecaCom(s, kSelectConta)                          ? "account"
                        : s.find("INT_SALDO_SUMARIZADO") != std::string::npos ? "balance"
                        : ComecaCom(s, kInsertDivisao)                        ? "division row"
                                                                              : s;
    if (passos.empty() || passos.back() != passo) passos.push_back(passo);
  }
  EXPECT_EQ(passos,
            (std::vector<std::string>{"number", "entry", "account", "balance", "division row",
                                      "number", "entry", "account", "balance", "division row"}));
}

TEST_P(GravaLancamentoTest, EachEntryUpdatesTheSummarisedBalancesOfItsSide) {
  Bind();
  CriaContas();
  RegistroCampos campos;
  campos.marca = "-";
  campos.codigo_divisao = "12";
  Grava(Registro(campos));
  // The balance-sheet account 1101001 is not always divided: no cost centre.
  EXPECT_EQ(
      Linhas(*raw_, kSelectSaldos),
      (std::vector<Linha>{
          {"D", "", "", "3101001", "C", "1", "1", "202405", "12", "-1", "-1", "-1", "9", "123.45"},
          {"D", "", "", "1101001", "D", "1", "1", "202405", "-1", "-1", "-1", "-1", "9", "123.45"},
          {"L", "", "", "3101001", "C", "1", "1", "202405", "-1", "-1", "-1", "-1", "-1", "123.45"},
          {"L", "", "", "1101001", "D", "1", "1", "202405", "-1", "-1", "-1", "-1", "-1",
           "123.45"}}));
  EXPECT_EQ(Linhas(*raw_, kSelectDivisoes),
            (std::vector<Linha>{{"1", "1", "12", "9", "8", "123.45"},
                                {"2", "2", "NULL", "9", "8", "123.45"}}));
}

TEST_P(GravaLancamentoTest, RecordDivisionCodeIsUsedWhenAccountsCarryNoCode) {
  Bind();
  RegistroCampos campos;
  campos.codigo_divisao = "7";
  campos.conta1 = "3101001";
  campos.conta2 = "3201001";
  Grava(Registro(campos), false);
  EXPECT_EQ(Column(*raw_, "select CENTRO_CUSTO from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO"),
            (std::vector<std::string>{"7", "7"}));
  EXPECT_EQ(Column(*raw_, "select CONTA from CTB_LANCAMENTO order by LANCAMENTO"),
            (std::vector<std::string>{"3201001", "3101001"}));
}

TEST_P(GravaLancamentoTest, WholeAccountFieldIsTheAccountWhenAccountsCarryNoCode) {
  Bind();
  RegistroCampos campos;
  campos.codigo_divisao = "7";
  campos.conta1 = ContaComCodigo("12", "3101001");
  campos.conta2 = ContaComCodigo("34", "3201001");
  trace_->Clear();
  Grava(Registro(campos), false);
  EXPECT_EQ(Column(*raw_, "select CONTA from CTB_LANCAMENTO order by LANCAMENTO"),
            (std::vector<std::string>{"34   3201001", "12   3101001"}));
  EXPECT_EQ(Column(*raw_, "select CENTRO_CUSTO from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO"),
            (std::vector<std::string>{"7", "7"}));
}

TEST_P(GravaLancamentoTest, DivisionCodesInAccountFieldsAreUsedWithCodigoNaConta) {
  Bind();
  RegistroCampos campos;
  campos.codigo_divisao = "7";
  campos.marca = "-";
  campos.conta1 = ContaComCodigo(" 12", "3101001");
  campos.conta2 = ContaComCodigo("34", "  3201001");
  trace_->Clear();
  Grava(Registro(campos), true);
  EXPECT_EQ(Inserts(),
            (std::vector<std::string>{
                InsertLancamento("1, 1, 202405, 1, NULL, 7, '3101001', NULL, 15, 'C', 123.45, "
                                 "'O', 'Venda balcao', 4711, 'N', NULL, 1"),
                InsertLancamento("1, 1, 202405, 2, 1, 7, '3201001', NULL, 15, 'D', 123.45, 'O', "
                                 "'Venda balcao', 4711, 'N', NULL, 1")}));
  EXPECT_EQ(Linhas(*raw_,
                   "select LANCAMENTO, CENTRO_CUSTO from CTB_LANCAMENTO_DIVIDIDO "
                   "order by LANCAMENTO"),
            (std::vector<Linha>{{"1", "12"}, {"2", "34"}}));
}

TEST_P(GravaLancamentoTest, BlankCodeInAccountFieldGivesNoCostCentreWithCodigoNaConta) {
  Bind();
  RegistroCampos campos;
  campos.codigo_divisao = "7";
  campos.conta1 = ContaComCodigo("", "3101001");
  campos.conta2 = ContaComCodigo("", "3201001");
  Grava(Registro(campos), true);
  EXPECT_EQ(Linhas(*raw_, "select CENTRO_CUSTO from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO"),
            (std::vector<Linha>{{"NULL"}, {"NULL"}}));
}

TEST_P(GravaLancamentoTest, CompanyDealershipUserAndDivisionDealershipAreWrittenAsGiven) {
  host_.codigo_usuario = 42;
  host_.revenda_aplicacao = 6;
  Bind();
  RegistroCampos campos;
  campos.yymm = "2312";
  campos.dia = "31";
  campos.historico_padrao = "3";
  campos.historico = "NF 1234 serie 1";
  campos.centavos = 5;
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->GravaLancamento(Registro(campos), "3", "5", "900001", "11", false);
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(Inserts(),
            (std::vector<std::string>{
                InsertLancamento("3, 5, 202312, 1, NULL, 42, '1101001', 3, 31, 'C', 0.05, 'O', "
                                 "'NF 1234 serie 1', 900001, 'N', NULL, 5"),
                InsertLancamento("3, 5, 202312, 2, 1, 42, '3101001', 3, 31, 'D', 0.05, 'O', "
                                 "'NF 1234 serie 1', 900001, 'N', NULL, 5")}));
  EXPECT_EQ(Linhas(*raw_,
                   "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO, REVENDA_DIVISAO, REVENDA_ORIGEM "
                   "from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO"),
            (std::vector<Linha>{{"3", "5", "202312", "1", "11", "6"},
                                {"3", "5", "202312", "2", "11", "6"}}));
  EXPECT_EQ(Scalar(*raw_,
                   "select ULTIMO_NUMERO from GER_NUMERADOR where EMPRESA = 3 and REVENDA = 5 "
                   "and TABELA = 'CTB_LANCAMENTO' and CHAVE = 'LCTO202312'")
                .AsInteger(),
            2);
}

TEST_P(GravaLancamentoTest, BlankStandardHistoryAndDocumentAreWrittenAsNull) {
  Bind();
  RegistroCampos campos;
  campos.historico_padrao = "";
  trace_->Clear();
  Grava(Registro(campos), false, "");
  EXPECT_EQ(Inserts(),
            (std::vector<std::string>{
                InsertLancamento("1, 1, 202405, 1, NULL, 7, '1101001', NULL, 15, 'C', 123.45, "
                                 "'O', 'Venda balcao', NULL, 'N', NULL, 1"),
                InsertLancamento("1, 1, 202405, 2, 1, 7, '3101001', NULL, 15, 'D', 123.45, 'O', "
                                 "'Venda balcao', NULL, 'N', NULL, 1")}));
  EXPECT_EQ(
      Linhas(*raw_, "select HISTORICO_PADRAO, DOCUMENTO from CTB_LANCAMENTO order by LANCAMENTO"),
      (std::vector<Linha>{{"NULL", "NULL"}, {"NULL", "NULL"}}));
}

TEST_P(GravaLancamentoTest, MultiByteHistoryIsWrittenWhole) {
  Bind();
  RegistroCampos campos;
  campos.historico = "Peças e serviços, ação nº 5";
  trace_->Clear();
  Grava(Registro(campos));
  for (const auto& s : Inserts())
    EXPECT_NE(s.find(", 'Peças e serviços, ação nº 5', 4711, "), std::string::npos) << s;
  EXPECT_EQ(Column(*raw_, "select HIS_COMPLEMENTAR from CTB_LANCAMENTO order by LANCAMENTO"),
            (std::vector<std::string>(2, "Peças e serviços, ação nº 5")));
}

TEST_P(GravaLancamentoTest, ComplementaryHistoryIsQuotedWithoutEscaping) {
  Bind();
  RegistroCampos campos;
  campos.historico = "Pedido D'Avila";
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_THROW(dm_->GravaLancamento(Registro(campos), "1", "1", "4711", "9", false),
               db::DatabaseError);
  ASSERT_TRUE(dm_->RollbackTransacao());
  ASSERT_EQ(Inserts().size(), 1u) << "the credit insert failed; nothing came after it";
  EXPECT_EQ(Inserts()[0],
            InsertLancamento("1, 1, 202405, 1, NULL, 7, '1101001', NULL, 15, 'C', 123.45, 'O', "
                             "'Pedido D'Avila', 4711, 'N', NULL, 1"));
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
}

TEST_P(GravaLancamentoTest, ShortRecordRaisesBeforeAnythingIsWritten) {
  Bind();
  const std::string registro = Registro(RegistroCampos());
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  for (const std::string& curto :
       {registro.substr(0, 132), registro.substr(0, 100), std::string()}) {
    try {
      dm_->GravaLancamento(curto, "1", "1", "4711", "9", false);
      ADD_FAILURE() << "no error for a record of " << curto.size() << " characters";
    } catch (const RegistroInvalido& e) {
      EXPECT_NE(std::string(e.what()).find("amount (positions 119-133)"), std::string::npos)
          << e.what();
    }
  }
  EXPECT_TRUE(trace_->Statements().empty()) << "not even a number is drawn";
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
  EXPECT_EQ(CountRows(*raw_, "GER_NUMERADOR"), 0);
}

TEST_P(GravaLancamentoTest, NonNumericAmountRaisesBeforeAnyNumberIsDrawn) {
  Bind();
  std::string registro = Registro(RegistroCampos());
  registro.replace(118, 15, "00000012a450000");
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  try {
    dm_->GravaLancamento(registro, "1", "1", "4711", "9", false);
    ADD_FAILURE() << "no error for a non-numeric amount";
  } catch (const RegistroInvalido& e) {
    EXPECT_NE(std::string(e.what()).find("amount (positions 119-133)"), std::string::npos)
        << e.what();
    EXPECT_NE(std::string(e.what()).find("'00000012a450000'"), std::string::npos) << e.what();
  }
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_TRUE(trace_->Statements().empty());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
}

TEST_P(GravaLancamentoTest, NonNumericCompanyRaisesBeforeAnythingIsWritten) {
  Bind();
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_THROW(dm_->GravaLancamento(Registro(RegistroCampos()), "1a", "1", "4711", "9", false),
               std::invalid_argument);
  EXPECT_THROW(dm_->GravaLancamento(Registro(RegistroCampos()), "1", "", "4711", "9", false),
               std::invalid_argument);
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_TRUE(trace_->Statements().empty());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
}

TEST_P(GravaLancamentoTest, AmountIsWrittenWithAPointUnderACommaLocale) {
  Bind();
  LocaleComVirgula locale;
  if (!locale.Ativo()) GTEST_SKIP() << "locale pt_BR.UTF-8 is not installed";
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  RegistroCampos campos;
  campos.centavos = 123450;
  trace_->Clear();
  Grava(Registro(campos));
  const auto inserts = Inserts();
  ASSERT_EQ(inserts.size(), 2u);
  for (const auto& s : inserts) EXPECT_NE(s.find(", 1234.50, 'O', "), std::string::npos) << s;
  const auto divisoes = ComecamCom(trace_->Statements(), kInsertDivisao);
  ASSERT_EQ(divisoes.size(), 2u);
  for (const auto& s : divisoes) EXPECT_TRUE(s.ends_with(", 1234.50)")) << s;
  for (const auto& linha : Linhas(*raw_, kSelectLancamentos)) EXPECT_EQ(linha[10], "1234.50");
}

TEST_P(GravaLancamentoTest, CommittedBatchKeepsEveryEntry) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  for (int64_t centavos : {100, 250, 399}) {
    RegistroCampos campos;
    campos.centavos = centavos;
    dm_->GravaLancamento(Registro(campos), "1", "1", "4711", "9", false);
  }
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 6);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 6);
  EXPECT_EQ(Column(*raw_, "select SEQUENCIA from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO"),
            (std::vector<std::string>{"1", "2", "3", "4", "5", "6"}));
}

TEST_P(GravaLancamentoTest, BadRecordInBatchLeavesNoRowOfTheBatchAfterRollback) {
  Bind();
  RegistroCampos primeiro;
  RegistroCampos segundo;
  segundo.centavos = 999;
  std::string ruim = Registro(segundo);
  ruim.replace(118, 15, "0000000000009x9");
  const std::vector<std::string> lote = {Registro(primeiro), Registro(segundo), ruim};
  ASSERT_TRUE(dm_->IniciaTransacao());
  size_t gravados = 0;
  try {
    for (const auto& registro : lote) {
      dm_->GravaLancamento(registro, "1", "1", "4711", "9", false);
      ++gravados;
    }
    ADD_FAILURE() << "the bad record was posted";
  } catch (const RegistroInvalido&) {
    EXPECT_EQ(gravados, 2u);
    EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 4) << "visible inside the transaction";
    EXPECT_TRUE(dm_->RollbackTransacao());
  }
  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
}

TEST_P(GravaLancamentoTest, DatabaseErrorOnTheDebitEntryLeavesTheCreditEntryToTheCaller) {
  Bind();
  trace_->FailMatching("values ( 1, 1, 202405, 2, 1, ");
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_THROW(dm_->GravaLancamento(Registro(RegistroCampos()), "1", "1", "4711", "9", false),
               db::DatabaseError);
  EXPECT_EQ(Linhas(*raw_, "select LANCAMENTO, NATUREZA from CTB_LANCAMENTO"),
            (std::vector<Linha>{{"1", "C"}}))
      << "the credit entry and its split were written before the failure";
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 1);
  ASSERT_TRUE(dm_->RollbackTransacao());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
}

TEST_P(GravaLancamentoTest, SummarisedBalanceErrorRaisesOutOfThePosting) {
  Bind();
  trace_->FailMatching("INT_SALDO_SUMARIZADO");
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_THROW(dm_->GravaLancamento(Registro(RegistroCampos()), "1", "1", "4711", "9", false),
               db::DatabaseError);
  EXPECT_EQ(Inserts().size(), 1u) << "the debit entry is not written";
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 1);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  ASSERT_TRUE(dm_->RollbackTransacao());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
}

TEST_P(GravaLancamentoTest, FailedDivisionRowDoesNotStopThePosting) {
  Bind();
  trace_->FailMatching("insert into ctb_lancamento_dividido");
  Grava(Registro(RegistroCampos()));
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 2);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 4) << "the balances stay updated";
}

KVC_INSTANTIATE_BACKENDS(GravaLancamentoTest);

// ---- GravaLancamentoSAP ------------------------------------------------------

class GravaLancamentoSAPTest : public GravaLancamentoTest {
 protected:
  // Posts one side of `registro` in a committed transaction.
  void GravaSAP(const std::string& registro, const std::string& natureza, int32_t& origem,
                bool reservado = false) {
    ASSERT_TRUE(dm_->IniciaTransacao());
    dm_->GravaLancamentoSAP(registro, "1", "1", "4711", "9", natureza, reservado, origem);
    ASSERT_TRUE(dm_->ComitaTransacao());
  }
};

TEST_P(GravaLancamentoSAPTest, FirstCallOfAPairWritesNullOriginAndReturnsItsNumber) {
  Bind();
  Grava(Registro(RegistroCampos()));  // numbers 1 and 2 of the month
  RegistroCampos campos;
  campos.historico_padrao = "45";
  int32_t origem = 0;
  trace_->Clear();
  GravaSAP(Registro(campos), "C", origem);
  EXPECT_EQ(origem, 3);
  EXPECT_EQ(Inserts(), (std::vector<std::string>{InsertLancamento(
                           "1, 1, 202405, 3, NULL, 7, '1101001', NULL, 15, 'C', 123.45, "
                           "'O', 'Venda balcao', 4711, 'N', NULL, 1")}));
  EXPECT_EQ(Linhas(*raw_, kSelectLancamentos).at(2),
            (Linha{"1", "1", "202405", "3", "NULL", "7", "1101001", "NULL", "15", "C", "123.45",
                   "O", "Venda balcao", "4711", "N", "NULL", "1"}));
}

TEST_P(GravaLancamentoSAPTest, SecondCallOfAPairPointsAtTheFirst) {
  Bind();
  int32_t origem = 0;
  trace_->Clear();
  GravaSAP(Registro(RegistroCampos()), "C", origem);
  GravaSAP(Registro(RegistroCampos()), "D", origem);
  EXPECT_EQ(origem, 1) << "the second call leaves the variable as it is";
  EXPECT_EQ(Inserts(),
            (std::vector<std::string>{
                InsertLancamento("1, 1, 202405, 1, NULL, 7, '1101001', NULL, 15, 'C', 123.45, "
                                 "'O', 'Venda balcao', 4711, 'N', NULL, 1"),
                InsertLancamento("1, 1, 202405, 2, 1, 7, '3101001', NULL, 15, 'D', 123.45, 'O', "
                                 "'Venda balcao', 4711, 'N', NULL, 1")}));
  EXPECT_EQ(Linhas(*raw_,
                   "select LANCAMENTO, LCO_ORIGEM, CONTA, NATUREZA from CTB_LANCAMENTO "
                   "order by LANCAMENTO"),
            (std::vector<Linha>{{"1", "NULL", "1101001", "C"}, {"2", "1", "3101001", "D"}}));
}

TEST_P(GravaLancamentoSAPTest, DebitFirstPairMakesTheDebitTheOrigin) {
  Bind();
  int32_t origem = 0;
  GravaSAP(Registro(RegistroCampos()), "D", origem);
  EXPECT_EQ(origem, 1);
  GravaSAP(Registro(RegistroCampos()), "C", origem);
  EXPECT_EQ(Linhas(*raw_,
                   "select LANCAMENTO, LCO_ORIGEM, CONTA, NATUREZA from CTB_LANCAMENTO "
                   "order by LANCAMENTO"),
            (std::vector<Linha>{{"1", "NULL", "3101001", "D"}, {"2", "1", "1101001", "C"}}));
}

TEST_P(GravaLancamentoSAPTest, CreditTakesSecondAccountFieldWhateverTheMark) {
  Bind();
  for (const std::string marca : {"-", " "}) {
    SCOPED_TRACE("mark '" + marca + "'");
    RegistroCampos campos;
    campos.marca = marca;
    campos.conta1 = "3101001";
    campos.conta2 = "  1101001";
    int32_t origem = 0;
    GravaSAP(Registro(campos), "C", origem);
    GravaSAP(Registro(campos), "D", origem);
  }
  EXPECT_EQ(
      Linhas(*raw_, "select NATUREZA, CONTA from CTB_LANCAMENTO order by LANCAMENTO"),
      (std::vector<Linha>{{"C", "1101001"}, {"D", "3101001"}, {"C", "1101001"}, {"D", "3101001"}}));
}

TEST_P(GravaLancamentoSAPTest, StandardHistoryCodeNeverReachesTheTable) {
  Bind();
  RegistroCampos campos;
  campos.historico_padrao = "45";
  int32_t origem = 0;
  trace_->Clear();
  GravaSAP(Registro(campos), "C", origem);
  GravaSAP(Registro(campos), "D", origem);
  for (const auto& s : Inserts()) EXPECT_NE(s.find("', NULL, 15, '"), std::string::npos) << s;
  EXPECT_EQ(Linhas(*raw_, "select HISTORICO_PADRAO from CTB_LANCAMENTO order by LANCAMENTO"),
            (std::vector<Linha>{{"NULL"}, {"NULL"}}));
}

TEST_P(GravaLancamentoSAPTest, UnknownSideConsumesNumberAndWritesNothing) {
  Bind();
  int32_t origem = 0;
  trace_->Clear();
  GravaSAP(Registro(RegistroCampos()), "c", origem);
  EXPECT_EQ(origem, 1) << "the unused number is stored";
  EXPECT_TRUE(Inserts().empty());
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 0);
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
  EXPECT_EQ(Scalar(*raw_, "select ULTIMO_NUMERO from GER_NUMERADOR where CHAVE = 'LCTO202405'")
                .AsInteger(),
            1);
  // The second call of the pair points at an entry that does not exist.
  GravaSAP(Registro(RegistroCampos()), "D", origem);
  EXPECT_EQ(Linhas(*raw_, "select LANCAMENTO, LCO_ORIGEM, NATUREZA from CTB_LANCAMENTO"),
            (std::vector<Linha>{{"2", "1", "D"}}));
  EXPECT_EQ(Scalar(*raw_, "select count(*) N from CTB_LANCAMENTO where LANCAMENTO = 1").AsInteger(),
            0);
}

TEST_P(GravaLancamentoSAPTest, EverySideButExactlyCOrDWritesNothing) {
  Bind();
  for (const std::string natureza : {"c", "d", "X", "", " C", "CD"}) {
    SCOPED_TRACE("side '" + natureza + "'");
    int32_t origem = 0;
    GravaSAP(Registro(RegistroCampos()), natureza, origem);
    EXPECT_NE(origem, 0);
  }
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
  EXPECT_EQ(Scalar(*raw_, "select ULTIMO_NUMERO from GER_NUMERADOR where CHAVE = 'LCTO202405'")
                .AsInteger(),
            6);
}

TEST_P(GravaLancamentoSAPTest, UnknownSideLeavesAGivenOriginAsItIs) {
  Bind();
  int32_t origem = 5;
  GravaSAP(Registro(RegistroCampos()), "x", origem);
  EXPECT_EQ(origem, 5);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 0);
  EXPECT_EQ(Scalar(*raw_, "select ULTIMO_NUMERO from GER_NUMERADOR where CHAVE = 'LCTO202405'")
                .AsInteger(),
            1);
}

TEST_P(GravaLancamentoSAPTest, DivisionCodeAlwaysComesFromPositions13To16) {
  Bind();
  RegistroCampos campos;
  campos.codigo_divisao = " 7";
  campos.conta1 = ContaComCodigo("12", "3101001");
  campos.conta2 = ContaComCodigo("34", "3201001");
  int32_t origem = 0;
  GravaSAP(Registro(campos), "C", origem);
  GravaSAP(Registro(campos), "D", origem);
  EXPECT_EQ(Linhas(*raw_,
                   "select L.CONTA, D.CENTRO_CUSTO from CTB_LANCAMENTO L "
                   "join CTB_LANCAMENTO_DIVIDIDO D on D.LANCAMENTO = L.LANCAMENTO "
                   "order by L.LANCAMENTO"),
            (std::vector<Linha>{{"34   3201001", "7"}, {"12   3101001", "7"}}));
}

TEST_P(GravaLancamentoSAPTest, EachSideUpdatesTheSummarisedBalancesOfItsAccount) {
  Bind();
  RegistroCampos campos;
  campos.codigo_divisao = "12";
  campos.conta1 = "3101001";
  campos.conta2 = "3201001";
  int32_t origem = 0;
  GravaSAP(Registro(campos), "C", origem);
  GravaSAP(Registro(campos), "D", origem);
  EXPECT_EQ(
      Linhas(*raw_, kSelectSaldos),
      (std::vector<Linha>{
          {"D", "", "", "3201001", "C", "1", "1", "202405", "12", "-1", "-1", "-1", "9", "123.45"},
          {"D", "", "", "3101001", "D", "1", "1", "202405", "12", "-1", "-1", "-1", "9", "123.45"},
          {"L", "", "", "3201001", "C", "1", "1", "202405", "-1", "-1", "-1", "-1", "-1", "123.45"},
          {"L", "", "", "3101001", "D", "1", "1", "202405", "-1", "-1", "-1", "-1", "-1",
           "123.45"}}));
}

TEST_P(GravaLancamentoSAPTest, ReservedFlagChangesNothing) {
  Bind();
  int32_t origem = 0;
  trace_->Clear();
  GravaSAP(Registro(RegistroCampos()), "C", origem, false);
  GravaSAP(Registro(RegistroCampos()), "D", origem, false);
  const auto sem_flag = trace_->Statements();
  for (const char* tabela :
       {"CTB_LANCAMENTO", "CTB_LANCAMENTO_DIVIDIDO", "INT_SALDO_SUMARIZADO", "GER_NUMERADOR"})
    raw_->Execute(std::string("delete from ") + tabela, {});
  dm_->LimpaSQLConnection();
  Bind();  // a new instance, so that the division rows number from 1 again
  origem = 0;
  trace_->Clear();
  GravaSAP(Registro(RegistroCampos()), "C", origem, true);
  GravaSAP(Registro(RegistroCampos()), "D", origem, true);
  EXPECT_EQ(trace_->Statements(), sem_flag);
}

TEST_P(GravaLancamentoSAPTest, ShortRecordRaisesBeforeANumberIsDrawn) {
  Bind();
  int32_t origem = 0;
  trace_->Clear();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_THROW(dm_->GravaLancamentoSAP(Registro(RegistroCampos()).substr(0, 132), "1", "1", "4711",
                                       "9", "C", false, origem),
               RegistroInvalido);
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(origem, 0);
  EXPECT_TRUE(trace_->Statements().empty());
  EXPECT_EQ(CountRows(*raw_, "GER_NUMERADOR"), 0);
}

KVC_INSTANTIATE_BACKENDS(GravaLancamentoSAPTest);

}  // namespace
}  // namespace kvc::testing
