// The in-memory client dataset: structure, rows, indexes, filters, navigation,
// editing and serialised table data.
#include "accounting/db/client_dataset.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "accounting/db/result_set.h"

namespace kvc::db {
namespace {

DateTime Dt(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0) {
  DateTime dt;
  dt.year = y;
  dt.month = mo;
  dt.day = d;
  dt.hour = h;
  dt.minute = mi;
  dt.second = s;
  dt.millisecond = ms;
  return dt;
}

std::vector<FieldDef> BalanceFields() {
  return {{"EMPRESA", FieldType::kInteger},
          {"REVENDA", FieldType::kInteger},
          {"CONTA", FieldType::kString},
          {"NATUREZA", FieldType::kString},
          {"REVENDA_DIVISAO", FieldType::kInteger},
          {"VALOR", FieldType::kFloat},
          {"DATA", FieldType::kDateTime},
          {"TIPO_ITEM", FieldType::kString}};
}

// A dataset of balance rows:
//   EMPRESA REVENDA CONTA NATUREZA REVENDA_DIVISAO VALOR DATA       TIPO_ITEM
//   1       1       1101  D        5               10.5  2024-01-31 null
//   1       2       1101  C        null            -3    2024-02-29 'A'
//   1       1       2101  D        5               100   2024-01-31 null
//   2       1       1101  D        7               0.25  2023-12-31 'B'
//   1       1       1101  D        5               9     2024-03-31 null
class ClientDataSetTest : public ::testing::Test {
 protected:
  ClientDataSetTest() : ds("Saldos") {
    ds.DefineFields(BalanceFields());
    ds.AppendRecord({1, 1, "1101", "D", 5, 10.5, Dt(2024, 1, 31), nullptr});
    ds.AppendRecord({1, 2, "1101", "C", nullptr, -3, Dt(2024, 2, 29), "A"});
    ds.AppendRecord({1, 1, "2101", "D", 5, 100, Dt(2024, 1, 31), nullptr});
    ds.AppendRecord({2, 1, "1101", "D", 7, 0.25, Dt(2023, 12, 31), "B"});
    ds.AppendRecord({1, 1, "1101", "D", 5, 9, Dt(2024, 3, 31), nullptr});
  }

  // The values of `field` over the visible rows, from First() to Eof().
  std::vector<Value> Column(const std::string& field) {
    std::vector<Value> out;
    for (ds.First(); !ds.Eof(); ds.Next()) out.push_back(ds.FieldByName(field));
    return out;
  }

  void ApplyFilter(const std::string& filter) {
    ds.SetFilter(filter);
    ds.SetFiltered(true);
  }

  ClientDataSet ds;
};

// ---- structure ----------------------------------------------------------------

TEST(ClientDataSetStructure, NewDataSetIsInactiveUntilFieldsAreDefined) {
  ClientDataSet ds("X");
  EXPECT_EQ(ds.Name(), "X");
  EXPECT_FALSE(ds.Active());
  EXPECT_TRUE(ds.FieldDefs().empty());
  EXPECT_TRUE(ds.Eof());
  EXPECT_TRUE(ds.IsEmpty());
  EXPECT_EQ(ds.SaveToString(), "");
  ds.DefineFields({{"A", FieldType::kInteger}});
  EXPECT_TRUE(ds.Active());
  EXPECT_TRUE(ds.IsEmpty());
  EXPECT_EQ(ds.RecordCount(), 0u);
  EXPECT_TRUE(ds.HasField("a"));
  EXPECT_FALSE(ds.HasField("b"));
}

TEST(ClientDataSetStructure, DuplicateFieldNamesInAnyCaseAreRejected) {
  ClientDataSet ds;
  EXPECT_THROW(ds.DefineFields({{"Conta", FieldType::kString}, {"CONTA", FieldType::kInteger}}),
               std::invalid_argument);
  EXPECT_FALSE(ds.Active());
  EXPECT_THROW(ds.DefineFields({{"", FieldType::kString}}), std::invalid_argument);
}

TEST(ClientDataSetStructure, OperationsOnAnInactiveDataSetAreRefused) {
  ClientDataSet ds("X");
  EXPECT_THROW(ds.AppendRecord({1}), std::logic_error);
  EXPECT_THROW(ds.Append(), std::logic_error);
  EXPECT_THROW(ds.FieldByName("A"), std::invalid_argument);
  EXPECT_THROW(ds.AddIndex("ix", "A"), std::invalid_argument);
}

TEST_F(ClientDataSetTest, DefineFieldsReplacesStructureRowsIndexesAndFilter) {
  ds.AddIndex("byConta", "CONTA");
  ds.SetIndexName("byConta");
  ApplyFilter("CONTA = '1101'");
  ds.DefineFields({{"X", FieldType::kString}});
  EXPECT_EQ(ds.FieldDefs().size(), 1u);
  EXPECT_TRUE(ds.IsEmpty());
  EXPECT_EQ(ds.IndexName(), "");
  EXPECT_EQ(ds.Filter(), "");
  EXPECT_FALSE(ds.Filtered());
  EXPECT_THROW(ds.SetIndexName("byConta"), std::invalid_argument);
}

TEST_F(ClientDataSetTest, CloseDropsRowsFieldsFilterAndIndexes) {
  ds.AddIndex("byConta", "CONTA");
  ds.SetIndexName("byConta");
  ApplyFilter("CONTA = '1101'");
  ds.Close();
  EXPECT_FALSE(ds.Active());
  EXPECT_TRUE(ds.FieldDefs().empty());
  EXPECT_EQ(ds.Filter(), "");
  EXPECT_FALSE(ds.Filtered());
  EXPECT_EQ(ds.IndexName(), "");
  EXPECT_TRUE(ds.Eof());
  EXPECT_EQ(ds.RecordCount(), 0u);
  ds.DefineFields({{"A", FieldType::kInteger}});
  ds.AppendRecord({1});
  EXPECT_EQ(ds.RecordCount(), 1u);
}

// ---- rows and values --------------------------------------------------------

TEST_F(ClientDataSetTest, AppendedRowsAreVisibleInInsertionOrder) {
  EXPECT_EQ(ds.RecordCount(), 5u);
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, -3.0, 100.0, 0.25, 9.0}));
}

TEST_F(ClientDataSetTest, ValuesAreReadBackTypedByTheirField) {
  ds.First();
  EXPECT_TRUE(ds.FieldByName("EMPRESA").IsInteger());
  EXPECT_TRUE(ds.FieldByName("VALOR").IsFloat());
  EXPECT_TRUE(ds.FieldByName("CONTA").IsString());
  EXPECT_TRUE(ds.FieldByName("DATA").IsDateTime());
  EXPECT_TRUE(ds.FieldByName("TIPO_ITEM").IsNull());
  EXPECT_EQ(ds.FieldByName("DATA"), Value(Dt(2024, 1, 31)));
}

TEST(ClientDataSetValues, AppendedValuesAreConvertedToTheFieldTypes) {
  ClientDataSet ds;
  ds.DefineFields({{"I", FieldType::kInteger},
                   {"F", FieldType::kFloat},
                   {"S", FieldType::kString},
                   {"D", FieldType::kDateTime}});
  ds.AppendRecord({"42", 3, 12, "2024-05-06 07:08:09.123"});
  ds.AppendRecord({nullptr, nullptr, nullptr, nullptr});
  ds.First();
  EXPECT_EQ(ds.FieldByName("I"), Value(42));
  EXPECT_EQ(ds.FieldByName("F"), Value(3.0));
  EXPECT_EQ(ds.FieldByName("S"), Value("12"));
  EXPECT_EQ(ds.FieldByName("D"), Value(Dt(2024, 5, 6, 7, 8, 9, 123)));
  ds.Next();
  for (const char* f : {"I", "F", "S", "D"}) EXPECT_TRUE(ds.FieldByName(f).IsNull()) << f;
}

TEST(ClientDataSetValues, AppendRecordRejectsAWrongCountOrAValueThatDoesNotConvert) {
  ClientDataSet ds("T");
  ds.DefineFields({{"I", FieldType::kInteger}, {"D", FieldType::kDateTime}});
  EXPECT_THROW(ds.AppendRecord({1}), std::invalid_argument);
  try {
    ds.AppendRecord({"abc", nullptr});
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("field 'I'"), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("abc"), std::string::npos) << e.what();
  }
  EXPECT_THROW(ds.AppendRecord({1, "31/01/2024"}), std::invalid_argument);
  EXPECT_THROW(ds.AppendRecord({1, Dt(2024, 2, 30)}), std::invalid_argument);
  EXPECT_EQ(ds.RecordCount(), 0u);
}

TEST_F(ClientDataSetTest, FieldByNameIgnoresCase) {
  ds.First();
  EXPECT_EQ(ds.FieldByName("conta"), Value("1101"));
  EXPECT_EQ(ds.FieldByName("Conta"), Value("1101"));
  EXPECT_EQ(ds.FieldByName("revenda_divisao"), Value(5));
}

TEST_F(ClientDataSetTest, UnknownFieldNamesTheFieldAndTheDataSet) {
  try {
    ds.FieldByName("CONTAX");
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_STREQ(e.what(), "field 'CONTAX' not found in Saldos");
  }
}

TEST_F(ClientDataSetTest, FieldsReadAsNullWhenThereIsNoCurrentRow) {
  ApplyFilter("CONTA = 'nothing'");
  ds.First();
  EXPECT_TRUE(ds.Eof());
  EXPECT_TRUE(ds.IsEmpty());
  EXPECT_TRUE(ds.FieldByName("CONTA").IsNull());
}

TEST_F(ClientDataSetTest, AppendRecordMakesTheNewRowCurrent) {
  ds.AppendRecord({3, 3, "9999", "D", nullptr, 1.0, nullptr, nullptr});
  EXPECT_EQ(ds.FieldByName("CONTA"), Value("9999"));
  EXPECT_EQ(ds.RecordCount(), 6u);
  ds.Next();
  EXPECT_TRUE(ds.Eof());
}

TEST(ClientDataSetValues, TextKeepsQuotesNonAsciiAndEmbeddedZeroes) {
  ClientDataSet ds;
  ds.DefineFields({{"S", FieldType::kString}});
  const std::string odd = std::string("a'b\"c ação ") + '\0' + "z";
  ds.AppendRecord({odd});
  ds.AppendRecord({""});
  ds.First();
  EXPECT_EQ(ds.FieldByName("S"), Value(odd));
  ds.Next();
  EXPECT_EQ(ds.FieldByName("S"), Value(""));
}

TEST(ClientDataSetValues, OddFieldNamesWork) {
  ClientDataSet ds;
  ds.DefineFields({{"valor \"bruto\"", FieldType::kFloat},
                   {"select", FieldType::kInteger},
                   {"rowid", FieldType::kInteger},
                   {"kvc_rowid", FieldType::kString}});
  ds.AppendRecord({1.5, 10, 100, "x"});
  ds.AppendRecord({2.5, 20, 100, "y"});
  ds.AddIndex("odd", "select;valor \"bruto\"");
  ds.SetIndexName("odd");
  ds.SetFilter("[valor \"bruto\"] > 2 and rowid = 100 and \"select\" = 20");
  ds.SetFiltered(true);
  ds.First();
  ASSERT_EQ(ds.RecordCount(), 1u);
  EXPECT_EQ(ds.FieldByName("kvc_rowid"), Value("y"));
  ds.Edit();
  ds.SetFieldValue("ROWID", 7);
  ds.Post();
  EXPECT_EQ(ds.RecordCount(), 0u);  // no longer passes the filter
  ds.SetFiltered(false);
  EXPECT_EQ(ds.RecordCount(), 2u);
  ASSERT_TRUE(ds.Locate("KVC_ROWID", {"y"}));
  EXPECT_EQ(ds.FieldByName("rowid"), Value(7));
  ds.Delete();
  EXPECT_EQ(ds.RecordCount(), 1u);
}

// ---- indexes ------------------------------------------------------------------

TEST_F(ClientDataSetTest, ActiveIndexOrdersTheVisibleRowsWithTiesInInsertionOrder) {
  ds.AddIndex("byContaRevenda", "conta;revenda");
  ds.SetIndexName("byContaRevenda");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 0.25, 9.0, -3.0, 100.0}));
  ds.SetIndexName("");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, -3.0, 100.0, 0.25, 9.0}));
}

TEST_F(ClientDataSetTest, IndexOnNumbersAndDateTimesSortsByValue) {
  ds.AddIndex("byValor", "VALOR");
  ds.AddIndex("byData", "DATA;VALOR");
  ds.SetIndexName("byValor");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{-3.0, 0.25, 9.0, 10.5, 100.0}));
  ds.SetIndexName("BYDATA");
  EXPECT_EQ(ds.IndexName(), "byData");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{0.25, 10.5, 100.0, -3.0, 9.0}));
}

TEST_F(ClientDataSetTest, NullsSortFirstInAnIndex) {
  ds.AddIndex("byTipo", "TIPO_ITEM");
  ds.SetIndexName("byTipo");
  EXPECT_EQ(Column("TIPO_ITEM"), (std::vector<Value>{nullptr, nullptr, nullptr, "A", "B"}));
}

TEST_F(ClientDataSetTest, IndexFieldNamesListsTheFieldsOfTheCurrentIndex) {
  EXPECT_EQ(ds.IndexFieldNames(), "");
  ds.AddIndex("ix", " conta ; natureza");
  EXPECT_EQ(ds.IndexFieldNames(), "");
  ds.SetIndexName("ix");
  EXPECT_EQ(ds.IndexName(), "ix");
  EXPECT_EQ(ds.IndexFieldNames(), "CONTA;NATUREZA");
}

TEST_F(ClientDataSetTest, AddIndexWithAnUnknownFieldNamesTheField) {
  try {
    ds.AddIndex("ix", "CONTA;NOPE");
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("'NOPE'"), std::string::npos) << e.what();
  }
  EXPECT_THROW(ds.AddIndex("ix", ""), std::invalid_argument);
  EXPECT_THROW(ds.AddIndex("", "CONTA"), std::invalid_argument);
}

TEST_F(ClientDataSetTest, UnknownIndexNameIsRejected) {
  EXPECT_THROW(ds.SetIndexName("nope"), std::invalid_argument);
  EXPECT_EQ(ds.IndexName(), "");
}

TEST_F(ClientDataSetTest, AddingAnIndexUnderAnExistingNameReplacesIt) {
  ds.AddIndex("ix", "VALOR");
  ds.SetIndexName("ix");
  ds.AddIndex("IX", "CONTA;REVENDA");
  EXPECT_EQ(ds.IndexFieldNames(), "CONTA;REVENDA");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 0.25, 9.0, -3.0, 100.0}));
}

TEST_F(ClientDataSetTest, ChangingTheIndexKeepsTheCurrentRow) {
  ds.AddIndex("byValor", "VALOR");
  ds.First();
  ds.Next();
  ds.Next();  // VALOR 100
  ds.SetIndexName("byValor");
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(100.0));
  ds.Next();
  EXPECT_TRUE(ds.Eof());
}

// ---- filters ------------------------------------------------------------------

TEST_F(ClientDataSetTest, FilterOnLeadingIndexFieldReturnsOnlyMatchingRows) {
  ds.AddIndex("byConta", "CONTA;REVENDA_DIVISAO");
  ds.SetIndexName("byConta");
  ApplyFilter(
      "conta = '1101' and revenda_divisao = 5 and revenda_divisao is not null and "
      "natureza = 'D'");
  EXPECT_EQ(ds.RecordCount(), 2u);
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 9.0}));
}

TEST_F(ClientDataSetTest, FilterFixingLeadingIndexFieldsIsServedByTheIndex) {
  ds.AddIndex("byConta", "CONTA;REVENDA_DIVISAO;NATUREZA");
  ds.SetIndexName("byConta");
  ApplyFilter("CONTA = '1101' and REVENDA_DIVISAO = 5");
  const std::string plan = ds.VisibleRowsPlan();
  EXPECT_NE(plan.find("SEARCH"), std::string::npos) << plan;
  EXPECT_NE(plan.find("USING COVERING INDEX"), std::string::npos) << plan;
  EXPECT_NE(plan.find("=? AND"), std::string::npos) << plan;
  EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 9.0}));

  ApplyFilter("CONTA = '1101'");
  EXPECT_NE(ds.VisibleRowsPlan().find("SEARCH"), std::string::npos) << ds.VisibleRowsPlan();
  EXPECT_EQ(ds.VisibleRowsPlan().find("TEMP B-TREE"), std::string::npos);
}

TEST(ClientDataSetFilterScale, RepeatedFiltersOnALargeTableReturnTheMatchingRows) {
  ClientDataSet ds("big");
  ds.DefineFields({{"CONTA", FieldType::kString},
                   {"REVENDA", FieldType::kInteger},
                   {"VALOR", FieldType::kFloat}});
  ResultSet rs;
  rs.columns = {"CONTA", "REVENDA", "VALOR"};
  rs.types = {FieldType::kString, FieldType::kInteger, FieldType::kFloat};
  for (int i = 0; i < 20000; ++i)
    rs.rows.push_back({std::to_string(1000 + i % 500), i % 7, static_cast<double>(i)});
  ds.LoadFrom(rs);
  ds.AddIndex("ix", "CONTA;REVENDA");
  ds.SetIndexName("ix");
  ds.SetFiltered(true);
  for (int k = 0; k < 2000; ++k) {
    const int conta = 1000 + (k * 37) % 500;
    ds.SetFilter("CONTA = '" + std::to_string(conta) + "' and REVENDA = " + std::to_string(k % 7));
    double sum = 0;
    size_t n = 0;
    for (ds.First(); !ds.Eof(); ds.Next()) {
      ASSERT_EQ(ds.FieldByName("CONTA"), Value(std::to_string(conta)));
      sum += ds.FieldByName("VALOR").AsFloat();
      ++n;
    }
    ASSERT_EQ(n, ds.RecordCount());
    // 40 rows per conta, spread over the 7 revendas.
    ASSERT_GE(n, 5u);
    ASSERT_LE(n, 6u);
    ASSERT_GT(sum, 0.0);
  }
}

TEST_F(ClientDataSetTest, FiltersOfEveryShapeSelectTheExpectedRows) {
  ApplyFilter(" CONTA = '2101'");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{100.0}));
  ApplyFilter("conta = '1101' and revenda_divisao in (5,7) and tipo_item is null");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 9.0}));
  ApplyFilter("EMPRESA = 1 and   REVENDA = 2 and   CONTA = '1101'");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{-3.0}));
  ApplyFilter("CONTA = '1101' AND NATUREZA='D' AND TIPO_ITEM = 'B'");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{0.25}));
  ApplyFilter("revenda_divisao not in (5) or revenda_divisao is null");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{-3.0, 0.25}));
  ApplyFilter("not (natureza = 'D') or (empresa = 2 and valor < 1)");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{-3.0, 0.25}));
  ApplyFilter("data >= '2024-01-31' and data < '2024-03-01'");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, -3.0, 100.0}));
  ApplyFilter("empresa <> revenda");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{-3.0, 0.25}));
  ApplyFilter("valor != 9 and valor >= -3");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, -3.0, 100.0, 0.25}));
}

TEST_F(ClientDataSetTest, TextComparisonsAreExactAndCaseSensitive) {
  ApplyFilter("natureza = 'd'");
  EXPECT_EQ(ds.RecordCount(), 0u);
  ApplyFilter("conta = '1101 '");
  EXPECT_EQ(ds.RecordCount(), 0u);
  ApplyFilter("conta > '3'");  // text order, not numeric
  EXPECT_EQ(ds.RecordCount(), 0u);
  ApplyFilter("conta = 1101");
  EXPECT_EQ(ds.RecordCount(), 4u);
}

TEST_F(ClientDataSetTest, NumericFieldsCompareNumerically) {
  ApplyFilter("valor > 9.5");  // 10.5 and 100, although "100" < "9.5" as text
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 100.0}));
  ApplyFilter("valor = 100");
  EXPECT_EQ(ds.RecordCount(), 1u);
  ApplyFilter("revenda_divisao = 5.0");
  EXPECT_EQ(ds.RecordCount(), 3u);
  ApplyFilter("revenda_divisao < '6'");
  EXPECT_EQ(ds.RecordCount(), 3u);
}

TEST_F(ClientDataSetTest, FilterIsOnlyAppliedWhileFiltered) {
  ds.SetFilter("CONTA = '2101'");
  EXPECT_EQ(ds.RecordCount(), 5u);
  ds.SetFiltered(true);
  EXPECT_EQ(ds.RecordCount(), 1u);
  ds.SetFiltered(false);
  EXPECT_EQ(ds.RecordCount(), 5u);
  ds.SetFiltered(true);
  ds.SetFilter("");
  EXPECT_EQ(ds.RecordCount(), 5u);
  EXPECT_TRUE(ds.Filtered());
}

TEST_F(ClientDataSetTest, InvalidFilterThrowsOnlyWhenApplied) {
  EXPECT_NO_THROW(ds.SetFilter("CONTAX = '1'"));
  try {
    ds.SetFiltered(true);
    FAIL() << "no exception";
  } catch (const FilterError& e) {
    EXPECT_STREQ(e.what(), "filter: unknown field 'CONTAX' at position 1 in: CONTAX = '1'");
  }
  EXPECT_FALSE(ds.Filtered());
  EXPECT_EQ(ds.RecordCount(), 5u);
}

TEST_F(ClientDataSetTest, RejectedFilterLeavesThePreviousFilterInPlace) {
  ApplyFilter("CONTA = '2101'");
  EXPECT_THROW(ds.SetFilter("CONTA = '1101' and"), FilterError);
  EXPECT_THROW(ds.SetFilter("CONTA = '1101"), FilterError);
  EXPECT_THROW(ds.SetFilter("(CONTA = '1101'"), FilterError);
  EXPECT_EQ(ds.Filter(), "CONTA = '2101'");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{100.0}));
}

TEST_F(ClientDataSetTest, ChangingTheFilterMovesToTheFirstVisibleRow) {
  ds.First();
  ds.Next();
  ds.Next();
  ApplyFilter("natureza = 'D'");
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(10.5));
}

TEST_F(ClientDataSetTest, FilterStaysAcrossLoadFromAndFailsWhenItsFieldIsGone) {
  ApplyFilter("CONTA = '1101'");
  ResultSet rs;
  rs.columns = {"conta", "valor"};
  rs.types = {FieldType::kString, FieldType::kFloat};
  rs.rows = {{"1101", 1.0}, {"2", 2.0}, {"1101", 3.0}};
  ds.LoadFrom(rs);
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{1.0, 3.0}));

  rs.columns = {"outra", "valor"};
  EXPECT_THROW(ds.LoadFrom(rs), FilterError);
  EXPECT_THROW(ds.First(), FilterError);
  ds.SetFiltered(false);
  EXPECT_EQ(ds.RecordCount(), 3u);
}

// ---- navigation -------------------------------------------------------------

TEST_F(ClientDataSetTest, NextWalksTheVisibleRowsUntilEof) {
  ApplyFilter("CONTA = '1101'");
  ds.First();
  EXPECT_FALSE(ds.Eof());
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(10.5));
  ds.Next();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(-3.0));
  ds.Next();
  ds.Next();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(9.0));
  ds.Next();
  EXPECT_TRUE(ds.Eof());
  EXPECT_TRUE(ds.FieldByName("VALOR").IsNull());
  ds.Next();
  EXPECT_TRUE(ds.Eof());
  ds.First();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(10.5));
}

TEST_F(ClientDataSetTest, LocateMovesToTheFirstVisibleMatch) {
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byValor");
  EXPECT_TRUE(ds.Locate("conta;NATUREZA", {"1101", "D"}));
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(0.25));
  ds.Next();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(9.0));
}

TEST_F(ClientDataSetTest, LocateThatFindsNothingReturnsFalseAndStays) {
  ds.First();
  ds.Next();
  EXPECT_FALSE(ds.Locate("CONTA", {"7777"}));
  EXPECT_FALSE(ds.Locate("REVENDA", {"abc"}));
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(-3.0));
  ApplyFilter("CONTA = '2101'");
  EXPECT_FALSE(ds.Locate("VALOR", {10.5}));  // exists, but not visible
}

TEST_F(ClientDataSetTest, LocateComparesNumbersNumericallyAndTextExactly) {
  EXPECT_TRUE(ds.Locate("REVENDA_DIVISAO", {7.0}));
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(0.25));
  EXPECT_FALSE(ds.Locate("REVENDA_DIVISAO", {7.5}));
  EXPECT_TRUE(ds.Locate("VALOR", {100}));
  EXPECT_EQ(ds.FieldByName("CONTA"), Value("2101"));
  EXPECT_TRUE(ds.Locate("VALOR", {"10.5"}));
  EXPECT_EQ(ds.FieldByName("REVENDA"), Value(1));
  EXPECT_FALSE(ds.Locate("NATUREZA", {"c"}));
  EXPECT_TRUE(ds.Locate("DATA", {"2024-02-29"}));
  EXPECT_EQ(ds.FieldByName("NATUREZA"), Value("C"));
}

TEST_F(ClientDataSetTest, LocateWithANullMatchesANullField) {
  EXPECT_TRUE(ds.Locate("REVENDA_DIVISAO", {nullptr}));
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(-3.0));
  EXPECT_TRUE(ds.Locate("TIPO_ITEM;CONTA", {nullptr, "2101"}));
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(100.0));
}

TEST_F(ClientDataSetTest, LocateRejectsUnknownFieldsAndMismatchedValues) {
  EXPECT_THROW(ds.Locate("NOPE", {1}), std::invalid_argument);
  EXPECT_THROW(ds.Locate("CONTA;REVENDA", {"1101"}), std::invalid_argument);
}

// ---- editing ------------------------------------------------------------------

TEST_F(ClientDataSetTest, EditAndPostChangeTheCurrentRow) {
  ds.First();
  ds.Next();
  ds.Edit();
  ds.SetFieldValue("valor", "12.5");
  ds.SetFieldValue("TIPO_ITEM", nullptr);
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(12.5));  // the edit buffer
  ds.Post();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(12.5));
  EXPECT_TRUE(ds.FieldByName("TIPO_ITEM").IsNull());
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, 12.5, 100.0, 0.25, 9.0}));
}

TEST_F(ClientDataSetTest, PostedRowStaysCurrentWhenTheIndexMovesIt) {
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byValor");
  ds.First();  // -3
  ds.Edit();
  ds.SetFieldValue("VALOR", 50.0);
  ds.Post();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(50.0));
  ds.Next();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(100.0));
}

TEST_F(ClientDataSetTest, AppendAndPostMakeTheNewRowCurrent) {
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byValor");
  ds.First();
  ds.Append();
  EXPECT_TRUE(ds.FieldByName("CONTA").IsNull());
  ds.SetFieldValue("CONTA", "3101");
  ds.SetFieldValue("VALOR", 5);
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(5.0));
  ds.Post();
  EXPECT_EQ(ds.FieldByName("CONTA"), Value("3101"));
  EXPECT_EQ(ds.RecordCount(), 6u);
  ds.Next();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(9.0));
}

TEST_F(ClientDataSetTest, PostedRowThatFailsTheFilterLeavesTheVisibleRows) {
  ApplyFilter("CONTA = '1101'");
  ds.First();
  ds.Edit();
  ds.SetFieldValue("CONTA", "5000");
  ds.Post();
  EXPECT_EQ(ds.RecordCount(), 3u);
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(-3.0));
  ds.Append();
  ds.SetFieldValue("CONTA", "1101");
  ds.SetFieldValue("VALOR", 1);
  ds.Post();
  EXPECT_EQ(ds.RecordCount(), 4u);
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(1.0));
}

TEST_F(ClientDataSetTest, CancelDiscardsTheEditBuffer) {
  ds.First();
  ds.Edit();
  ds.SetFieldValue("VALOR", 1);
  ds.Cancel();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(10.5));
  ds.Append();
  ds.SetFieldValue("VALOR", 1);
  ds.Cancel();
  EXPECT_EQ(ds.RecordCount(), 5u);
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(10.5));
}

TEST_F(ClientDataSetTest, EditingRulesAreEnforced) {
  EXPECT_THROW(ds.SetFieldValue("VALOR", 1), std::logic_error);
  ApplyFilter("CONTA = 'none'");
  ds.First();
  EXPECT_THROW(ds.Edit(), std::logic_error);
  ds.SetFiltered(false);
  ds.First();
  ds.Edit();
  EXPECT_THROW(ds.SetFieldValue("NOPE", 1), std::invalid_argument);
  EXPECT_THROW(ds.SetFieldValue("REVENDA", "x"), std::invalid_argument);
  ds.Cancel();
}

TEST_F(ClientDataSetTest, MovingAwayFromAnEditPostsIt) {
  ds.First();
  ds.Edit();
  ds.SetFieldValue("VALOR", 11);
  ds.Next();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(-3.0));
  ds.First();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(11.0));
}

TEST_F(ClientDataSetTest, DeleteMovesToTheNextVisibleRow) {
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byValor");
  ds.First();
  ds.Next();  // 0.25
  ds.Delete();
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(9.0));
  EXPECT_EQ(ds.RecordCount(), 4u);
  ds.Locate("VALOR", {100});
  ds.Delete();
  EXPECT_TRUE(ds.Eof());
  EXPECT_THROW(ds.Delete(), std::logic_error);
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{-3.0, 9.0, 10.5}));
}

TEST_F(ClientDataSetTest, EmptyDataSetKeepsFieldsAndIndexes) {
  ds.AddIndex("ix", "CONTA");
  ds.SetIndexName("ix");
  ds.EmptyDataSet();
  EXPECT_TRUE(ds.IsEmpty());
  EXPECT_TRUE(ds.Active());
  EXPECT_EQ(ds.IndexName(), "ix");
  ds.AppendRecord({1, 1, "2", "D", 1, 1.0, nullptr, nullptr});
  ds.AppendRecord({1, 1, "1", "D", 1, 2.0, nullptr, nullptr});
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{2.0, 1.0}));
}

TEST_F(ClientDataSetTest, AppendRecordUnderAFilterShowsOnlyMatchingRows) {
  ds.AddIndex("ix", "CONTA;VALOR");
  ds.SetIndexName("ix");
  ApplyFilter("CONTA = '2101'");
  ds.AppendRecord({1, 1, "2101", "D", 1, 1.0, nullptr, nullptr});
  EXPECT_EQ(ds.FieldByName("VALOR"), Value(1.0));
  ds.AppendRecord({1, 1, "9", "D", 1, 2.0, nullptr, nullptr});
  EXPECT_EQ(ds.RecordCount(), 2u);
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{1.0, 100.0}));
}

// ---- LoadFrom -----------------------------------------------------------------

TEST_F(ClientDataSetTest, LoadFromCopiesAResultSetAndKeepsIndexesWhoseFieldsExist) {
  ds.AddIndex("byConta", "CONTA");
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byConta");
  ResultSet rs;
  rs.columns = {"conta", "SALDO"};
  rs.types = {FieldType::kString, FieldType::kFloat};
  rs.rows = {{"3", "1.5"}, {"1", 2}, {"2", nullptr}};
  ds.LoadFrom(rs);
  ASSERT_EQ(ds.FieldDefs().size(), 2u);
  EXPECT_EQ(ds.FieldDefs()[1].name, "SALDO");
  EXPECT_EQ(ds.IndexName(), "byConta");
  EXPECT_EQ(ds.IndexFieldNames(), "conta");
  EXPECT_THROW(ds.SetIndexName("byValor"), std::invalid_argument);
  EXPECT_EQ(Column("SALDO"), (std::vector<Value>{2.0, nullptr, 1.5}));
}

TEST_F(ClientDataSetTest, FailedLoadFromLeavesThePreviousDataInPlace) {
  ResultSet rs;
  rs.columns = {"A", "B"};
  rs.types = {FieldType::kInteger, FieldType::kInteger};
  rs.rows = {{1, 2}, {3}};
  try {
    ds.LoadFrom(rs);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("row 2"), std::string::npos) << e.what();
  }
  rs.rows = {{1, 2}, {3, "x"}};
  try {
    ds.LoadFrom(rs);
    FAIL() << "no exception";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("row 2, field 'B'"), std::string::npos) << e.what();
  }
  rs.columns = {"A", "a"};
  rs.rows.clear();
  EXPECT_THROW(ds.LoadFrom(rs), std::invalid_argument);
  EXPECT_EQ(ds.FieldDefs().size(), 8u);
  EXPECT_EQ(ds.RecordCount(), 5u);
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{10.5, -3.0, 100.0, 0.25, 9.0}));
}

// ---- serialised table data ----------------------------------------------------

TEST(ClientDataSetSerialisation, SaveToStringWritesFieldsAndRows) {
  ClientDataSet ds;
  ds.DefineFields({{"I", FieldType::kInteger},
                   {"F", FieldType::kFloat},
                   {"S", FieldType::kString},
                   {"D", FieldType::kDateTime}});
  ds.AppendRecord({7, 2.5, "a\"b", Dt(2024, 1, 2, 3, 4, 5)});
  ds.AppendRecord({nullptr, nullptr, nullptr, Dt(2024, 1, 2, 3, 4, 5, 60)});
  nlohmann::json doc = nlohmann::json::parse(ds.SaveToString());
  EXPECT_EQ(doc, nlohmann::json::parse(R"({
    "fields": [{"name": "I", "type": "integer"}, {"name": "F", "type": "float"},
               {"name": "S", "type": "string"}, {"name": "D", "type": "datetime"}],
    "rows": [[7, 2.5, "a\"b", "2024-01-02 03:04:05"],
             [null, null, null, "2024-01-02 03:04:05.060"]]})"));
}

TEST_F(ClientDataSetTest, SaveAndLoadRoundTripKeepsTypesNullsAndEveryRow) {
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byValor");
  ApplyFilter("CONTA = '2101'");
  const std::string saved = ds.SaveToString();

  ClientDataSet copy("copy");
  copy.LoadFromString(saved);
  EXPECT_TRUE(copy.Active());
  ASSERT_EQ(copy.FieldDefs().size(), 8u);
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(copy.FieldDefs()[i].name, BalanceFields()[i].name);
    EXPECT_EQ(copy.FieldDefs()[i].type, BalanceFields()[i].type);
  }
  EXPECT_EQ(copy.RecordCount(), 5u);
  ds.SetFiltered(false);
  ds.SetIndexName("");
  ds.First();
  for (copy.First(); !copy.Eof(); copy.Next(), ds.Next()) {
    for (const FieldDef& f : BalanceFields())
      EXPECT_EQ(copy.FieldByName(f.name), ds.FieldByName(f.name)) << f.name;
  }
  EXPECT_EQ(copy.SaveToString(), saved);
}

TEST_F(ClientDataSetTest, LoadFromStringKeepsIndexesAndFilter) {
  ds.AddIndex("byValor", "VALOR");
  ds.SetIndexName("byValor");
  const std::string saved = ds.SaveToString();
  ApplyFilter("NATUREZA = 'D'");
  ds.EmptyDataSet();
  ds.LoadFromString(saved);
  EXPECT_EQ(ds.IndexName(), "byValor");
  EXPECT_EQ(Column("VALOR"), (std::vector<Value>{0.25, 9.0, 10.5, 100.0}));
}

TEST_F(ClientDataSetTest, LoadFromStringOfAnEmptyTextLeavesAnInactiveDataSet) {
  ds.LoadFromString("");
  EXPECT_FALSE(ds.Active());
  EXPECT_TRUE(ds.Eof());
  EXPECT_EQ(ds.SaveToString(), "");
}

TEST_F(ClientDataSetTest, LoadFromStringNamesTheRowAndFieldOfMalformedData) {
  auto message = [&](const std::string& data) -> std::string {
    try {
      ds.LoadFromString(data);
    } catch (const std::invalid_argument& e) {
      return e.what();
    }
    ADD_FAILURE() << "no exception for " << data;
    return {};
  };
  const std::string fields =
      R"("fields":[{"name":"N","type":"integer"},{"name":"D","type":"datetime"}])";
  EXPECT_NE(
      message("{" + fields + R"(,"rows":[[1,null],[2,"2024-02-30"]]})").find("row 2, field 'D'"),
      std::string::npos);
  EXPECT_NE(message("{" + fields + R"(,"rows":[[1.5,null]]})").find("row 1, field 'N'"),
            std::string::npos);
  EXPECT_NE(message("{" + fields + R"(,"rows":[["1",null]]})").find("expected an integer"),
            std::string::npos);
  EXPECT_NE(message("{" + fields + R"(,"rows":[[1]]})").find("row 1 has 1 values for 2"),
            std::string::npos);
  EXPECT_NE(message("{" + fields + R"(,"rows":[5]})").find("row 1"), std::string::npos);
  EXPECT_NE(message(R"({"fields":[{"name":"N","type":"money"}],"rows":[]})").find("money"),
            std::string::npos);
  EXPECT_NE(message(R"({"fields":[{"type":"integer"}],"rows":[]})").find("field 1"),
            std::string::npos);
  EXPECT_NE(message(R"({"fields":[],"rows":)").find("malformed JSON"), std::string::npos);
  EXPECT_NE(message(R"({"rows":[]})").find("\"fields\""), std::string::npos);
  EXPECT_NE(message(R"([1,2])").find("object"), std::string::npos);
  // The dataset is unchanged by the failed loads.
  EXPECT_EQ(ds.FieldDefs().size(), 8u);
  EXPECT_EQ(ds.RecordCount(), 5u);
}

TEST(ClientDataSetSerialisation, WholeNumbersInFloatFieldsStayFloats) {
  ClientDataSet ds;
  ds.LoadFromString(R"({"fields":[{"name":"F","type":"float"},{"name":"I","type":"integer"}],)"
                    R"("rows":[[3,4.0],[-9007199254740993,9223372036854775807]]})");
  ds.First();
  EXPECT_EQ(ds.FieldByName("F"), Value(3.0));
  EXPECT_EQ(ds.FieldByName("I"), Value(4));
  ds.Next();
  EXPECT_EQ(ds.FieldByName("I"), Value(int64_t{9223372036854775807}));
  EXPECT_TRUE(ds.FieldByName("F").IsFloat());
}

}  // namespace
}  // namespace kvc::db
