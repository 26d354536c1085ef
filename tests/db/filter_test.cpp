// Translation of the client dataset filter dialect to SQLite conditions.
#include "accounting/db/filter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kvc::db {
namespace {

const std::vector<FieldDef> kFields = {
    {"conta", FieldType::kString},          {"revenda_divisao", FieldType::kInteger},
    {"natureza", FieldType::kString},       {"centro_custo", FieldType::kInteger},
    {"tipo_item", FieldType::kString},      {"EMPRESA", FieldType::kInteger},
    {"REVENDA", FieldType::kInteger},       {"CONTA_SUPERIORA", FieldType::kString},
    {"TIPO", FieldType::kString},           {"valor", FieldType::kFloat},
    {"data", FieldType::kDateTime},         {"descrição", FieldType::kString},
    {"valor \"bruto\"", FieldType::kFloat},
};

// The message of the FilterError that translating `text` throws.
std::string ErrorOf(const std::string& text) {
  try {
    TranslateFilter(text, kFields);
  } catch (const FilterError& e) {
    return e.what();
  }
  ADD_FAILURE() << "no FilterError for: " << text;
  return {};
}

TEST(FilterTranslation, EmptyOrBlankTextMeansNoCondition) {
  EXPECT_TRUE(TranslateFilter("", kFields).Empty());
  EXPECT_TRUE(TranslateFilter("   \t ", kFields).Empty());
  EXPECT_TRUE(TranslateFilter("", kFields).params.empty());
}

TEST(FilterTranslation, EqualityWithQuotedTextBindsTheText) {
  SqlFilter f = TranslateFilter("conta = '1101'", kFields);
  EXPECT_EQ(f.where, "\"conta\" = ?");
  ASSERT_EQ(f.params.size(), 1u);
  EXPECT_EQ(f.params[0], Value("1101"));
}

TEST(FilterTranslation, FieldNamesAndKeywordsIgnoreCase) {
  SqlFilter f = TranslateFilter(" CONTA = '3.1.01'", kFields);
  EXPECT_EQ(f.where, "\"conta\" = ?");
  f = TranslateFilter("empresa = 1 AnD Conta_Superiora Is NoT nUlL", kFields);
  EXPECT_EQ(f.where, "(\"EMPRESA\" = ? AND \"CONTA_SUPERIORA\" IS NOT NULL)");
}

TEST(FilterTranslation, FiltersWrittenByTheEngineTranslate) {
  SqlFilter f = TranslateFilter(
      "conta = '1101' and revenda_divisao = 5 and revenda_divisao is not null and natureza = 'D'",
      kFields);
  EXPECT_EQ(f.where,
            "(\"conta\" = ? AND \"revenda_divisao\" = ? AND \"revenda_divisao\" IS NOT NULL "
            "AND \"natureza\" = ?)");
  EXPECT_EQ(f.params, (std::vector<Value>{"1101", 5, "D"}));

  f = TranslateFilter("conta = '11' and centro_custo in (1,2,3) and tipo_item is null", kFields);
  EXPECT_EQ(f.where, "(\"conta\" = ? AND \"centro_custo\" IN (?, ?, ?) AND \"tipo_item\" IS NULL)");
  EXPECT_EQ(f.params, (std::vector<Value>{"11", 1, 2, 3}));

  f = TranslateFilter("EMPRESA = 1 and   REVENDA = 2 and   CONTA_SUPERIORA = '1'", kFields);
  EXPECT_EQ(f.params, (std::vector<Value>{1, 2, "1"}));

  f = TranslateFilter("CONTA = '1' AND NATUREZA='D' AND TIPO = 'X'", kFields);
  EXPECT_EQ(f.where, "(\"conta\" = ? AND \"natureza\" = ? AND \"TIPO\" = ?)");
  EXPECT_EQ(f.params, (std::vector<Value>{"1", "D", "X"}));
}

TEST(FilterTranslation, EveryComparisonOperatorIsAccepted) {
  for (std::string op : {"=", "<", ">", "<=", ">=", "<>"}) {
    SqlFilter f = TranslateFilter("revenda " + op + " 2", kFields);
    EXPECT_EQ(f.where, "\"REVENDA\" " + op + " ?");
  }
  EXPECT_EQ(TranslateFilter("revenda != 2", kFields).where, "\"REVENDA\" <> ?");
  EXPECT_EQ(TranslateFilter("revenda<>2", kFields).where, "\"REVENDA\" <> ?");
}

TEST(FilterTranslation, DoubledQuoteInsideTextIsOneQuote) {
  SqlFilter f = TranslateFilter("natureza = 'O''Brien ''x'''", kFields);
  EXPECT_EQ(f.params, (std::vector<Value>{"O'Brien 'x'"}));
  EXPECT_EQ(TranslateFilter("natureza = ''", kFields).params, (std::vector<Value>{""}));
}

TEST(FilterTranslation, NegativeAndDecimalNumbersKeepTheirKind) {
  EXPECT_EQ(TranslateFilter("revenda = -12", kFields).params, (std::vector<Value>{-12}));
  EXPECT_EQ(TranslateFilter("valor >= 3.5", kFields).params, (std::vector<Value>{3.5}));
  EXPECT_EQ(TranslateFilter("valor<-0.25", kFields).params, (std::vector<Value>{-0.25}));
  EXPECT_EQ(TranslateFilter("valor > .5", kFields).params, (std::vector<Value>{0.5}));
  EXPECT_EQ(TranslateFilter("revenda = 2.0", kFields).params, (std::vector<Value>{2.0}));
}

TEST(FilterTranslation, QuotedNumberComparedWithNumericFieldIsANumber) {
  EXPECT_EQ(TranslateFilter("revenda = '5'", kFields).params, (std::vector<Value>{5}));
  EXPECT_EQ(TranslateFilter("valor = '2.75'", kFields).params, (std::vector<Value>{2.75}));
}

TEST(FilterTranslation, NumberComparedWithTextFieldIsTheTextAsWritten) {
  EXPECT_EQ(TranslateFilter("conta = 1.50", kFields).params, (std::vector<Value>{"1.50"}));
  EXPECT_EQ(TranslateFilter("conta in (11, -2)", kFields).params, (std::vector<Value>{"11", "-2"}));
}

TEST(FilterTranslation, DateTimeLiteralBecomesIsoText) {
  SqlFilter f = TranslateFilter("data >= '2024-01-31' and data < '2024-02-01 10:20:30.5'", kFields);
  EXPECT_EQ(f.params, (std::vector<Value>{"2024-01-31 00:00:00", "2024-02-01 10:20:30.500"}));
}

TEST(FilterTranslation, LiteralOnTheLeftTakesTheTypeOfTheField) {
  SqlFilter f = TranslateFilter("'7' < revenda", kFields);
  EXPECT_EQ(f.where, "? < \"REVENDA\"");
  EXPECT_EQ(f.params, (std::vector<Value>{7}));
}

TEST(FilterTranslation, FieldComparedWithFieldNeedsNoParameter) {
  SqlFilter f = TranslateFilter("empresa <= revenda", kFields);
  EXPECT_EQ(f.where, "\"EMPRESA\" <= \"REVENDA\"");
  EXPECT_TRUE(f.params.empty());
}

TEST(FilterTranslation, InAndNotInListsBindEachValue) {
  SqlFilter f = TranslateFilter("centro_custo not in (1, '2') or natureza in ('D')", kFields);
  EXPECT_EQ(f.where, "(\"centro_custo\" NOT IN (?, ?) OR \"natureza\" IN (?))");
  EXPECT_EQ(f.params, (std::vector<Value>{1, 2, "D"}));
}

TEST(FilterTranslation, AndBindsTighterThanOr) {
  SqlFilter f = TranslateFilter("revenda = 1 or revenda = 2 and conta = 'x'", kFields);
  EXPECT_EQ(f.where, "(\"REVENDA\" = ? OR (\"REVENDA\" = ? AND \"conta\" = ?))");
}

TEST(FilterTranslation, ParenthesesAndNotGroupConditions) {
  SqlFilter f = TranslateFilter("not (revenda = 1 or revenda = 2) and not conta = 'x'", kFields);
  EXPECT_EQ(f.where, "(NOT (((\"REVENDA\" = ? OR \"REVENDA\" = ?))) AND NOT (\"conta\" = ?))");
  EXPECT_EQ(f.params, (std::vector<Value>{1, 2, "x"}));
}

TEST(FilterTranslation, BracketedOrDoubleQuotedNamesReachOddFields) {
  EXPECT_EQ(TranslateFilter("[valor \"bruto\"] > 1", kFields).where, "\"valor \"\"bruto\"\"\" > ?");
  EXPECT_EQ(TranslateFilter("\"CONTA\" = 'a'", kFields).where, "\"conta\" = ?");
}

TEST(FilterTranslation, NonAsciiFieldNamesAreAccepted) {
  EXPECT_EQ(TranslateFilter("descrição = 'ação'", kFields).where, "\"descrição\" = ?");
}

TEST(FilterTranslation, LiteralComparedWithLiteralIsAllowed) {
  SqlFilter f = TranslateFilter("1 = 1 and conta = 'a'", kFields);
  EXPECT_EQ(f.where, "(? = ? AND \"conta\" = ?)");
  EXPECT_EQ(f.params, (std::vector<Value>{1, 1, "a"}));
}

TEST(FilterTranslation, UnknownFieldIsReportedWithItsPositionAndTheText) {
  EXPECT_EQ(ErrorOf("CONTAX = '1'"),
            "filter: unknown field 'CONTAX' at position 1 in: CONTAX = '1'");
  EXPECT_EQ(ErrorOf("conta = '1' and xyz is null"),
            "filter: unknown field 'xyz' at position 17 in: conta = '1' and xyz is null");
}

TEST(FilterTranslation, DanglingOperatorIsReportedAtTheOperator) {
  EXPECT_EQ(ErrorOf("conta ="),
            "filter: missing a field or value after '=' at position 7 in: conta =");
  EXPECT_EQ(ErrorOf("conta = '1' and"),
            "filter: missing a condition after 'and' at position 13 in: conta = '1' and");
  EXPECT_NE(ErrorOf("conta = '1' or"), "");
  EXPECT_NE(ErrorOf("not"), "");
  EXPECT_EQ(ErrorOf("conta = and revenda = 1"),
            "filter: expected a field or value but found 'and' at position 9 in: conta = and "
            "revenda = 1");
}

TEST(FilterTranslation, UnclosedQuoteIsReportedAtTheOpeningQuote) {
  EXPECT_EQ(ErrorOf("conta = '11"), "filter: unclosed quote at position 9 in: conta = '11");
  EXPECT_EQ(ErrorOf("conta = 'it''s"), "filter: unclosed quote at position 9 in: conta = 'it''s");
}

TEST(FilterTranslation, UnclosedParenthesisIsReportedAtTheOpeningParenthesis) {
  EXPECT_EQ(ErrorOf("(conta = '1' and (revenda = 2)"),
            "filter: unclosed parenthesis at position 1 in: (conta = '1' and (revenda = 2)");
  EXPECT_EQ(ErrorOf("revenda in (1, 2"),
            "filter: unclosed parenthesis at position 12 in: revenda in (1, 2");
}

TEST(FilterTranslation, StrayClosingParenthesisIsAnError) {
  EXPECT_EQ(ErrorOf("conta = '1')"), "filter: unexpected ')' at position 12 in: conta = '1')");
}

TEST(FilterTranslation, MalformedPredicatesAreErrors) {
  EXPECT_NE(ErrorOf("conta").find("missing a comparison, IS or IN after 'conta' at position 1"),
            std::string::npos);
  EXPECT_NE(ErrorOf("conta is '1'").find("expected NULL"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda in 1").find("expected '('"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda in ()").find("expected a value"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda in (1,)").find("expected a value"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda in (1 2)").find("expected ',' or ')'"), std::string::npos);
  EXPECT_NE(ErrorOf("conta = null").find("IS NULL"), std::string::npos);
  EXPECT_NE(ErrorOf("'1' is null").find("needs a field"), std::string::npos);
  EXPECT_NE(ErrorOf("conta = '1' revenda = 2").find("position 13"), std::string::npos);
  EXPECT_NE(ErrorOf("()").find("position 2"), std::string::npos);
}

TEST(FilterTranslation, UnexpectedCharactersAndMalformedNumbersAreErrors) {
  EXPECT_EQ(ErrorOf("conta = '1' & revenda = 2"),
            "filter: unexpected character '&' at position 13 in: conta = '1' & revenda = 2");
  EXPECT_NE(ErrorOf("revenda = 1.").find("malformed number at position 11"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda = 12ab").find("malformed number"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda = - 1").find("unexpected character '-'"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda ! 1").find("unexpected character '!'"), std::string::npos);
  EXPECT_NE(ErrorOf("[conta = '1'").find("unclosed bracket at position 1"), std::string::npos);
}

TEST(FilterTranslation, LiteralThatDoesNotFitTheFieldTypeIsAnError) {
  EXPECT_EQ(ErrorOf("revenda = 'abc'"),
            "filter: 'abc' is not a number for field 'REVENDA' at position 11 in: revenda = "
            "'abc'");
  EXPECT_NE(ErrorOf("data = '2024-13-01'").find("not a date and time for field 'data'"),
            std::string::npos);
  EXPECT_NE(ErrorOf("data = 5").find("not a date and time"), std::string::npos);
  EXPECT_NE(ErrorOf("revenda in (1, 'x')").find("position 16"), std::string::npos);
}

TEST(FilterTranslation, PositionsCountCharactersNotBytes) {
  EXPECT_EQ(ErrorOf("descrição = 'ã' and ?"),
            "filter: unexpected character '?' at position 21 in: descrição = 'ã' and ?");
}

TEST(FilterTranslation, SqlIdentifierDoublesQuotes) {
  EXPECT_EQ(SqlIdentifier("conta"), "\"conta\"");
  EXPECT_EQ(SqlIdentifier("a\"b"), "\"a\"\"b\"");
}

}  // namespace
}  // namespace kvc::db
