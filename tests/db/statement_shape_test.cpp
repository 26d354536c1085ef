// The shape of a statement: which literals are taken out to be bound, and
// which stay in the text because a bound value would not mean the same.
#include "accounting/db/statement_shape.h"

#include <gtest/gtest.h>

#include <clocale>

namespace kvc::db {
namespace {

using Kind = ShapeSlot::Kind;

StatementShape Shape(std::string_view sql) {
  std::optional<StatementShape> shape = ShapeStatement(sql);
  EXPECT_TRUE(shape.has_value()) << sql;
  return shape.value_or(StatementShape{});
}

TEST(StatementShape, InsertValuesAreTakenOutInOrderWithTheirKinds) {
  StatementShape s = Shape("insert into T (A, B, C, D) values (1, 'it''s', 12.50, NULL)");
  EXPECT_EQ(s.text, "insert into T (A, B, C, D) values (?, ?, ?, NULL)");
  ASSERT_EQ(s.slots.size(), 3u);
  EXPECT_EQ(s.slots[0].kind, Kind::kInteger);
  EXPECT_EQ(s.slots[0].integer, 1);
  EXPECT_EQ(s.slots[1].kind, Kind::kText);
  EXPECT_EQ(s.slots[1].text, "it's");
  EXPECT_EQ(s.slots[2].kind, Kind::kReal);
  EXPECT_EQ(s.slots[2].real, 12.5);
}

// For a server that types each parameter from its context: numbers in
// arithmetic (a sign included), texts next to ||, decimals a money column
// would round and integers beyond 32 bits stay; the rest is taken out.
TEST(StatementShape, TypedParametersKeepWhatTheirTypeCouldChange) {
  std::optional<StatementShape> s = ShapeStatement(
      "update S set SALDO = SALDO + 10.25 where ANO*100+DIA >= 20240101 and CONTA || 'x' = 'A'"
      " and V = 1.005 and W = 2.5e3 and N = 3000000000 and M = -7 and K = 12 and T = 'B'",
      true);
  ASSERT_TRUE(s.has_value());
  EXPECT_EQ(s->text,
            "update S set SALDO = SALDO + 10.25 where ANO*100+DIA >= ? and CONTA || 'x' = ?"
            " and V = 1.005 and W = 2.5e3 and N = 3000000000 and M = -7 and K = ? and T = ?");
  ASSERT_EQ(s->slots.size(), 4u);
  EXPECT_EQ(s->slots[0].integer, 20240101);
  EXPECT_EQ(s->slots[1].text, "A");
  EXPECT_EQ(s->slots[2].integer, 12);
  EXPECT_EQ(s->slots[3].text, "B");
  EXPECT_TRUE(s->kept_for_type);
  // 32 bits exactly and a number in parentheses are taken out; a text
  // before || is kept, and so is a number before a comment's "--" (the
  // scanner reads the dash as a minus: it keeps more than it must, never
  // less).
  std::optional<StatementShape> edges = ShapeStatement(
      "select A from T where N = 2147483647 and M = (5) and 'x' || C = C and K = 3 -- x\n", true);
  ASSERT_TRUE(edges.has_value());
  EXPECT_EQ(edges->text,
            "select A from T where N = ? and M = (?) and 'x' || C = C and K = 3 -- x\n");
  std::optional<StatementShape> dates = ShapeStatement(
      "select A from T where D = '2024-05-06 07:08:09' and E = '' and C = '2024.05'", true);
  ASSERT_TRUE(dates.has_value());
  EXPECT_EQ(dates->text, "select A from T where D = '2024-05-06 07:08:09' and E = '' and C = ?");
  std::optional<StatementShape> wide = ShapeStatement("select A from T where N = 2147483648", true);
  ASSERT_TRUE(wide.has_value());
  EXPECT_EQ(wide->text, "select A from T where N = 2147483648");
  EXPECT_TRUE(wide->kept_for_type);
  // Without typed parameters every one of them is taken out but the select
  // list's.
  std::optional<StatementShape> untyped =
      ShapeStatement("update S set SALDO = SALDO + 10.25 where V = 1.005 and M = -7");
  ASSERT_TRUE(untyped.has_value());
  EXPECT_EQ(untyped->text, "update S set SALDO = SALDO + ? where V = ? and M = -?");
}

TEST(StatementShape, TwoRowsOfOneStatementShareTheKey) {
  StatementShape a = Shape("update S set SALDO = SALDO + 10.00 where CONTA = '1.1' and ANO = 2024");
  StatementShape b =
      Shape("update S set SALDO = SALDO + 99.99 where CONTA = '3.1.7' and ANO = 2025");
  EXPECT_EQ(a.text, "update S set SALDO = SALDO + ? where CONTA = ? and ANO = ?");
  EXPECT_EQ(a.Key(), b.Key());
  // The same text with a number where text was: another prepared statement.
  StatementShape c = Shape("update S set SALDO = SALDO + 10.00 where CONTA = 11 and ANO = 2024");
  EXPECT_EQ(c.text, a.text);
  EXPECT_NE(c.Key(), a.Key());
}

TEST(StatementShape, SelectListLiteralsStayBecauseTheyNameAndTypeColumns) {
  StatementShape s = Shape(
      "select 'D' NATUREZA, 1, coalesce(sum(VAL), 0) TOTAL, substr(CONTA, 1, 3) G from T "
      "where EMPRESA = 1 and CONTA like '3%'");
  EXPECT_EQ(s.text,
            "select 'D' NATUREZA, 1, coalesce(sum(VAL), 0) TOTAL, substr(CONTA, 1, 3) G from T "
            "where EMPRESA = ? and CONTA like ?");
  ASSERT_EQ(s.slots.size(), 2u);
}

TEST(StatementShape, OrderAndGroupByPositionsStay) {
  StatementShape s = Shape(
      "select CONTA, sum(VAL) from T where ANO = 2024 group by 1 having sum(VAL) <> 0 "
      "order by 1, 2 desc limit 10");
  EXPECT_EQ(s.text,
            "select CONTA, sum(VAL) from T where ANO = ? group by 1 having sum(VAL) <> ? "
            "order by 1, 2 desc limit ?");
}

TEST(StatementShape, CastArgumentsStayAndSubqueriesAreShapedByTheirOwnClauses) {
  StatementShape s = Shape(
      "select cast(A as varchar(10)) from T where B in (select C from U where D = 'x') "
      "and cast(E as numeric(15, 2)) > 5");
  EXPECT_EQ(s.text,
            "select cast(A as varchar(10)) from T where B in (select C from U where D = ?) "
            "and cast(E as numeric(15, 2)) > ?");
}

TEST(StatementShape, InsertFromSelectKeepsTheSelectList) {
  StatementShape s =
      Shape("insert into T (A, B) select 7, X from U where Y = 'a' union select 8, Z from V");
  EXPECT_EQ(s.text, "insert into T (A, B) select 7, X from U where Y = ? union select 8, Z from V");
}

TEST(StatementShape, PlaceholdersBecomeSlotsAndCastsAreNotPlaceholders) {
  StatementShape s = Shape("select A::text from T where B = :Conta and C = :conta and D = 3");
  EXPECT_EQ(s.text, "select A::text from T where B = ? and C = ? and D = ?");
  ASSERT_EQ(s.slots.size(), 3u);
  EXPECT_EQ(s.slots[0].kind, Kind::kPlaceholder);
  EXPECT_EQ(s.slots[0].text, "Conta");
  EXPECT_EQ(s.slots[1].text, "conta");
  EXPECT_EQ(s.slots[2].kind, Kind::kInteger);
}

TEST(StatementShape, CommentsAndQuotedIdentifiersAreCopied) {
  StatementShape s = Shape("select \"A 1\" from T /* 'x' 5 */ where B = 2 -- 'y' 6\n and C = 'z'");
  EXPECT_EQ(s.text, "select \"A 1\" from T /* 'x' 5 */ where B = ? -- 'y' 6\n and C = ?");
}

TEST(StatementShape, IdentifiersWithDigitsAndSignedNumbers) {
  StatementShape s = Shape("update T set DIVISAO1 = -1, SALDO = SALDO - 1.5e2 where X2 = 0");
  EXPECT_EQ(s.text, "update T set DIVISAO1 = -?, SALDO = SALDO - ? where X2 = ?");
  ASSERT_EQ(s.slots.size(), 3u);
  EXPECT_EQ(s.slots[1].real, 150.0);
}

TEST(StatementShape, NumbersBeyondSixtyFourBitsStay) {
  StatementShape s =
      Shape("select A from T where B = 99999999999999999999 and C = 9223372036854775807");
  EXPECT_EQ(s.text, "select A from T where B = 99999999999999999999 and C = ?");
}

TEST(StatementShape, DecimalNumbersAreReadWithAPointUnderACommaLocale) {
  const char* before = std::setlocale(LC_ALL, nullptr);
  std::string saved = before ? before : "C";
  if (!std::setlocale(LC_ALL, "pt_BR.UTF-8")) GTEST_SKIP() << "pt_BR.UTF-8 not installed";
  StatementShape s = Shape("update T set V = 1234.56 where A = 1");
  std::setlocale(LC_ALL, saved.c_str());
  ASSERT_EQ(s.slots.size(), 2u);
  EXPECT_EQ(s.slots[0].real, 1234.56);
}

TEST(StatementShape, AnythingNotTakenApartWithCertaintyIsSentAsItIs) {
  for (const char* sql : {
           "create table T (A integer)",
           "pragma busy_timeout = 30000",
           "drop table T",
           "select A from T where B = 'unterminated",
           "select A from T /* unterminated",
           "select A from T where B = 1; delete from T",
           "select A from T where B = ?",
           "select [A] from T",
           "select A from T where B = X'00'",
           "select A from T where B = 0x1F",
           "select A from T where B = 12abc",
           "select A from T where (B = 1",
           "select A from T where B = 1)",
       })
    EXPECT_FALSE(ShapeStatement(sql).has_value()) << sql;
}

}  // namespace
}  // namespace kvc::db
