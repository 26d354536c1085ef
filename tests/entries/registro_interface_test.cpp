// The reader of the fixed-width interface record: the field at each
// position, what is trimmed and what is kept as it stands, the amount in
// hundredths, the 5 + 15 split of an account field, the errors of a record
// that cannot be posted, and positions counted in UTF-8 characters.
#include "accounting/entries/registro_interface.h"

#include <gtest/gtest.h>

#include <string>

#include "support/records.h"

namespace kvc::testing {
namespace {

// A record written out piece by piece, each piece at its positions.
std::string RegistroEscrito() {
  return std::string("HEADER000001")           // 1-12
         + " 12 "                              // 13-16 division code
         + "................"                  // 17-32
         + "2405"                              // 33-36 YYMM
         + " 7"                                // 37-38 day
         + "abc"                               // 39-41
         + "  Venda de pecas nota 123       "  // 42-73 complementary history
         + " 3101001            "              // 74-93 first account field
         + "1101001             "              // 94-113 second account field
         + " 45 "                              // 114-117 standard history
         + "-"                                 // 118 side mark
         + "000000000012345";                  // 119-133 amount in hundredths
}

// `registro` with the 15 characters of the amount replaced.
std::string ComValor(std::string registro, const std::string& valor) {
  return registro.replace(118, 15, valor);
}

TEST(RegistroInterface, HandWrittenRecordHas133Characters) {
  EXPECT_EQ(RegistroEscrito().size(), kTamanhoRegistro);
}

TEST(RegistroInterface, ReadsEachFieldAtItsPositions) {
  const RegistroInterface r = LeRegistro(RegistroEscrito());
  EXPECT_EQ(r.codigo_divisao, "12");
  EXPECT_EQ(r.ano_mes, "202405");
  EXPECT_EQ(r.dia, " 7");
  EXPECT_EQ(r.historico_complementar, "Venda de pecas nota 123");
  EXPECT_EQ(r.primeiro_campo_conta, " 3101001            ");
  EXPECT_EQ(r.segundo_campo_conta, "1101001             ");
  EXPECT_EQ(r.historico_padrao, "45");
  EXPECT_EQ(r.marca_lado, "-");
  EXPECT_DOUBLE_EQ(r.valor, 123.45);
}

TEST(RegistroInterface, TrimsCodeHistoriesButKeepsDayAndAccountFieldsAsTheyStand) {
  RegistroCampos campos;
  campos.codigo_divisao = "  9";
  campos.dia = "5";
  campos.historico = "   Frete  a pagar";
  campos.conta1 = "  3101001";
  campos.historico_padrao = "  3";
  const RegistroInterface r = LeRegistro(Registro(campos));
  EXPECT_EQ(r.codigo_divisao, "9");
  EXPECT_EQ(r.dia, "5 ");
  EXPECT_EQ(r.historico_complementar, "Frete  a pagar") << "inner blanks are kept";
  EXPECT_EQ(r.primeiro_campo_conta, "  3101001           ");
  EXPECT_EQ(r.historico_padrao, "3");
}

TEST(RegistroInterface, BlankFieldsReadAsEmptyText) {
  RegistroCampos campos;
  campos.codigo_divisao = "";
  campos.historico = "";
  campos.historico_padrao = "";
  const RegistroInterface r = LeRegistro(Registro(campos));
  EXPECT_EQ(r.codigo_divisao, "");
  EXPECT_EQ(r.historico_complementar, "");
  EXPECT_EQ(r.historico_padrao, "");
  EXPECT_EQ(r.marca_lado, " ");
}

TEST(RegistroInterface, AccountingMonthIsTwentyFollowedByYymmAsItStands) {
  RegistroCampos campos;
  campos.yymm = "9912";
  EXPECT_EQ(LeRegistro(Registro(campos)).ano_mes, "209912");
  campos.yymm = "24 5";
  EXPECT_EQ(LeRegistro(Registro(campos)).ano_mes, "2024 5") << "not padded or reformatted";
}

TEST(RegistroInterface, AmountIsTheNumberInHundredths) {
  const std::string registro = RegistroEscrito();
  EXPECT_DOUBLE_EQ(LeRegistro(ComValor(registro, "000000000012345")).valor, 123.45);
  EXPECT_DOUBLE_EQ(LeRegistro(ComValor(registro, "000000000123450")).valor, 1234.5);
  EXPECT_DOUBLE_EQ(LeRegistro(ComValor(registro, "000000000000001")).valor, 0.01);
  EXPECT_DOUBLE_EQ(LeRegistro(ComValor(registro, "000000000000000")).valor, 0.0);
  EXPECT_DOUBLE_EQ(LeRegistro(ComValor(registro, "999999999999999")).valor, 9999999999999.99);
}

TEST(RegistroInterface, CharactersAfterPosition133AreIgnored) {
  const RegistroInterface r = LeRegistro(RegistroEscrito() + "tail 999");
  EXPECT_DOUBLE_EQ(r.valor, 123.45);
}

TEST(RegistroInterface, ShortRecordRaisesNamingTheAmountPositions) {
  const std::string registro = RegistroEscrito();
  for (const std::string& curto :
       {registro.substr(0, 132), registro.substr(0, 118), registro.substr(0, 40), std::string()}) {
    try {
      (void)LeRegistro(curto);
      ADD_FAILURE() << "no error for a record of " << curto.size() << " characters";
    } catch (const RegistroInvalido& e) {
      EXPECT_NE(std::string(e.what()).find("amount (positions 119-133)"), std::string::npos)
          << e.what();
    }
  }
}

TEST(RegistroInterface, NonNumericAmountRaisesNamingFieldPositionsAndText) {
  const std::string registro = RegistroEscrito();
  for (const std::string& valor :
       {std::string("00000012a450000"), std::string("               "),
        std::string("0000000 0012345"), std::string("00000000012345x")}) {
    try {
      (void)LeRegistro(ComValor(registro, valor));
      ADD_FAILURE() << "no error for amount '" << valor << "'";
    } catch (const RegistroInvalido& e) {
      const std::string what = e.what();
      EXPECT_NE(what.find("amount (positions 119-133)"), std::string::npos) << what;
      EXPECT_NE(what.find("'" + valor + "'"), std::string::npos) << what;
    }
  }
}

TEST(RegistroInterface, InvalidRecordIsAnInvalidArgument) {
  EXPECT_THROW((void)LeRegistro("short"), std::invalid_argument);
}

TEST(RegistroInterface, MultiByteCharacterCountsAsOnePosition) {
  RegistroCampos campos;
  campos.historico = "Peças e serviços";  // 16 characters, 18 bytes
  campos.conta1 = "Ação";
  campos.conta2 = "1101001";
  campos.centavos = 987;
  const std::string registro = Registro(campos);
  ASSERT_EQ(registro.size(), 133u + 2 + 2);
  const RegistroInterface r = LeRegistro(registro);
  EXPECT_EQ(r.historico_complementar, "Peças e serviços");
  EXPECT_EQ(r.primeiro_campo_conta, "Ação                ");
  EXPECT_EQ(r.segundo_campo_conta, "1101001             ");
  EXPECT_EQ(r.marca_lado, " ");
  EXPECT_DOUBLE_EQ(r.valor, 9.87);
}

// Positions skip ASCII eight bytes at a time; a byte that continues a
// character (even a stray one, in text that is not UTF-8) still belongs to
// the character before it, as it did when every character was counted.
TEST(RegistroInterface, PositionsCountCharactersAcrossAsciiStretches) {
  EXPECT_EQ(Posicoes("ABCDEFGH\xBAIJ", 9, 1), "I");
  EXPECT_EQ(Posicoes("ABCDEFGHIJ", 9, 2), "IJ");
  EXPECT_EQ(Posicoes("ABCDEFGçHIJKLMNOP", 9, 2), "HI");
  EXPECT_EQ(Posicoes("ABCDEFGHçIJKLMNOP", 9, 3), "çIJ");
  EXPECT_EQ(Posicoes("ABC", 2, 5), "BC");
  EXPECT_EQ(Posicoes("ABCDEFGHIJKLMNOPQRSTUVWXçZ", 25, 2), "çZ");
}

TEST(RegistroInterface, RecordOf133BytesButFewerCharactersIsShort) {
  std::string registro = RegistroEscrito();
  // Two 2-byte characters in place of four 1-byte ones: 133 bytes, 131
  // characters.
  registro.replace(41, 4, "çç");
  ASSERT_EQ(registro.size(), 133u);
  EXPECT_THROW((void)LeRegistro(registro), RegistroInvalido);
}

TEST(RegistroInterface, AccountFieldWithCodeSplitsFiveAndFifteenCharacters) {
  const ContaDivisao c = LeContaDivisao("  12 3101001        ", true, "99");
  EXPECT_EQ(c.codigo_divisao, "12");
  EXPECT_EQ(c.conta, "3101001");
  const ContaDivisao sem_codigo = LeContaDivisao("     3101001        ", true, "99");
  EXPECT_EQ(sem_codigo.codigo_divisao, "") << "the record's code is not used";
  EXPECT_EQ(sem_codigo.conta, "3101001");
  const ContaDivisao colado = LeContaDivisao("123453101001", true, "99");
  EXPECT_EQ(colado.codigo_divisao, "12345");
  EXPECT_EQ(colado.conta, "3101001");
}

TEST(RegistroInterface, AccountFieldWithoutCodeIsWholeAccountWithRecordCode) {
  const ContaDivisao c = LeContaDivisao("  12 3101001        ", false, "7");
  EXPECT_EQ(c.conta, "12 3101001");
  EXPECT_EQ(c.codigo_divisao, "7");
}

TEST(RegistroInterface, AccountFieldWithCodeCountsCharactersNotBytes) {
  const ContaDivisao c = LeContaDivisao(ContaComCodigo("ç1", "Ação"), true, "");
  EXPECT_EQ(c.codigo_divisao, "ç1");
  EXPECT_EQ(c.conta, "Ação");
}

TEST(RegistroInterface, PositionsPastTheEndAreShorterOrEmpty) {
  EXPECT_EQ(Posicoes("abcdef", 2, 3), "bcd");
  EXPECT_EQ(Posicoes("abc", 2, 5), "bc");
  EXPECT_EQ(Posicoes("abc", 4, 2), "");
  EXPECT_EQ(Posicoes("", 1, 4), "");
  EXPECT_EQ(Posicoes("aço!", 2, 2), "ço");
  EXPECT_EQ(Posicoes("aço!", 4, 1), "!");
}

TEST(RegistroInterface, TrimRemovesBlanksAndControlCharactersAtBothEnds) {
  EXPECT_EQ(Apara("  a b  "), "a b");
  EXPECT_EQ(Apara("\t\r\nx\n"), "x");
  EXPECT_EQ(Apara("    "), "");
  EXPECT_EQ(Apara(" ção "), "ção");
}

TEST(RegistroInterface, BuilderWritesEachFieldAtItsPosition) {
  RegistroCampos campos;
  campos.codigo_divisao = "12";
  campos.yymm = "2406";
  campos.dia = "30";
  campos.historico = "Historico";
  campos.conta1 = ContaComCodigo("3", "3101001");
  campos.conta2 = "1101001";
  campos.historico_padrao = "45";
  campos.marca = "-";
  campos.centavos = 12345;
  const std::string r = Registro(campos);
  ASSERT_EQ(r.size(), kTamanhoRegistro);
  EXPECT_EQ(Posicoes(r, 13, 4), "12  ");
  EXPECT_EQ(Posicoes(r, 33, 4), "2406");
  EXPECT_EQ(Posicoes(r, 37, 2), "30");
  EXPECT_EQ(Posicoes(r, 42, 32), "Historico" + std::string(23, ' '));
  EXPECT_EQ(Posicoes(r, 74, 20), "3    3101001        ");
  EXPECT_EQ(Posicoes(r, 94, 20), "1101001             ");
  EXPECT_EQ(Posicoes(r, 114, 4), "45  ");
  EXPECT_EQ(Posicoes(r, 118, 1), "-");
  EXPECT_EQ(Posicoes(r, 119, 15), "000000000012345");
}

TEST(RegistroInterface, BuilderRefusesAFieldWiderThanItsPositions) {
  RegistroCampos campos;
  campos.conta1 = std::string(21, '1');
  EXPECT_THROW((void)Registro(campos), std::invalid_argument);
  campos = RegistroCampos();
  campos.centavos = -1;
  EXPECT_THROW((void)Registro(campos), std::invalid_argument);
}

}  // namespace
}  // namespace kvc::testing
