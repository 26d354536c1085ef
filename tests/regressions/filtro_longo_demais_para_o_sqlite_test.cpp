// Regression, found by fuzz/filter_fuzz.cpp in its long run: a dataset filter
// of about a hundred comparisons joined by OR ("80!=000024 or 80!=... or
// ...", 3,441 bytes) was accepted by the filter translator, which nested
// every OR and AND of a chain in parentheses of its own ("((a OR b) OR
// c)"), and then the dataset could not apply it: SQLite's parser stopped
// with "parser stack overflow", a DatabaseError out of RecordCount where the
// filter dialect promises that a filter it accepts is one the dataset
// reads. Chains are now written flat ("(a OR b OR c)"), and what SQLite
// cannot take in any form (nesting beyond a depth, more comparisons than an
// expression may hold) is refused by the translator as a filter error.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "accounting/db/client_dataset.h"
#include "accounting/db/filter.h"

namespace kvc::testing {
namespace {

using db::FieldDef;
using db::FieldType;

const std::vector<FieldDef> kFields = {{"CONTA", FieldType::kString},
                                       {"REVENDA", FieldType::kInteger}};

db::ClientDataSet& Dataset() {
  static db::ClientDataSet ds("cdsFiltro");
  if (!ds.Active()) {
    ds.DefineFields(kFields);
    ds.AppendRecord({"1.1.01", 1});
    ds.AppendRecord({"1.1.02", 2});
    ds.AppendRecord({"3.1.01", 7});
    ds.SetFiltered(true);
  }
  return ds;
}

// `term` n times, joined by `op`.
std::string Chain(const std::string& term, const std::string& op, int n) {
  std::string text = term;
  for (int i = 1; i < n; ++i) text += " " + op + " " + term;
  return text;
}

TEST(FiltroLongoDemaisParaOSqlite, AChainOfAHundredOrsApplies) {
  db::ClientDataSet& ds = Dataset();
  ds.SetFilter(Chain("REVENDA <> 24", "or", 100));
  EXPECT_EQ(ds.RecordCount(), 3u);
  ds.SetFilter(Chain("REVENDA <> 24", "and", 100) + " and REVENDA = 7");
  EXPECT_EQ(ds.RecordCount(), 1u);
  ds.SetFilter("");
}

TEST(FiltroLongoDemaisParaOSqlite, AChainIsWrittenFlat) {
  EXPECT_EQ(db::TranslateFilter("REVENDA = 1 or REVENDA = 2 or REVENDA = 3", kFields).where,
            "(\"REVENDA\" = ? OR \"REVENDA\" = ? OR \"REVENDA\" = ?)");
}

// Each NOT and each parenthesis is a level: "not (" is two.
TEST(FiltroLongoDemaisParaOSqlite, NestingBeyondTheLimitIsAFilterError) {
  std::string twenty = "REVENDA = 1";
  for (int i = 0; i < 10; ++i) twenty = "not (" + twenty + ")";
  try {
    (void)db::TranslateFilter("(" + twenty + ")", kFields);
    FAIL() << "accepted 21 levels of nesting";
  } catch (const db::FilterError& e) {
    EXPECT_NE(std::string(e.what()).find("filter: nested deeper than 20 levels at position 51"),
              std::string::npos)
        << e.what();
  }
  // Twenty levels, the most accepted, apply.
  db::ClientDataSet& ds = Dataset();
  ds.SetFilter(twenty);
  EXPECT_EQ(ds.RecordCount(), 1u);
  std::string nots = "REVENDA = 1";
  for (int i = 0; i < 19; ++i) nots = "not " + nots;
  ds.SetFilter(nots);
  EXPECT_EQ(ds.RecordCount(), 2u);
  ds.SetFilter("");
}

TEST(FiltroLongoDemaisParaOSqlite, MoreComparisonsThanTheLimitIsAFilterError) {
  EXPECT_NO_THROW((void)db::TranslateFilter(Chain("REVENDA = 1", "or", 500), kFields));
  try {
    (void)db::TranslateFilter(Chain("REVENDA = 1", "or", 501), kFields);
    FAIL() << "accepted 501 comparisons";
  } catch (const db::FilterError& e) {
    EXPECT_NE(std::string(e.what()).find("filter: more than 500 comparisons at position"),
              std::string::npos)
        << e.what();
  }
  db::ClientDataSet& ds = Dataset();
  ds.SetFilter(Chain("REVENDA = 1", "or", 250) + " or " + Chain("REVENDA <> 1", "and", 250));
  EXPECT_EQ(ds.RecordCount(), 3u);
  ds.SetFilter("");
}

}  // namespace
}  // namespace kvc::testing
