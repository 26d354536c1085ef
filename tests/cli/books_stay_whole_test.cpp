// What kvctb does so that the books stay whole, beyond refusing bad input:
// a file posted twice is stopped, and the deletion of half a pair deletes
// the pair. Each refusal exits 1 before anything is written and leaves the
// database file byte for byte as it was.
//
// The commands run as whole processes on a copy of the small books
// (DirectoryWithSmallBooks), which hold the two records of TwoRecords()
// posted as document 1.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "support/records.h"

namespace kvc::cli::testing {
namespace {

class BooksStayWholeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = DirectoryWithSmallBooks(info->name());
    db_ = dir_ + "/books.db";
  }

  RunResult Run(const std::vector<std::string>& args) {
    std::vector<std::string> all = {"--db", "sqlite:books.db", "--quiet"};
    all.insert(all.end(), args.begin(), args.end());
    return RunKvctb(all, In(dir_));
  }

  long long Entries() {
    return db::Connect("sqlite:" + db_)
        ->Query("select count(*) from CTB_LANCAMENTO", {})
        .rows.at(0)
        .at(0)
        .AsInteger();
  }

  // Debits minus credits of the whole journal, in cents.
  long long Imbalance() {
    return db::Connect("sqlite:" + db_)
        ->Query(
            "select coalesce(sum(case when NATUREZA = 'D' then cast(round(VAL_LANCAMENTO * "
            "100) as integer) else -cast(round(VAL_LANCAMENTO * 100) as integer) end), 0) "
            "from CTB_LANCAMENTO",
            {})
        .rows.at(0)
        .at(0)
        .AsInteger();
  }

  std::string dir_;
  std::string db_;
};

TEST_F(BooksStayWholeTest, TheSameFileTwiceIsRefusedUnlessAllowed) {
  WriteFile(dir_ + "/entries.txt", TwoRecords());
  const std::string before = ReadFile(db_);
  const RunResult r = Run({"post", "entries.txt", "--document", "1"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "entries.txt:1: already in the journal: 123.45 on day 15 of 202406, debit 1.1.1.01, "
            "credit 3.1.1.01, document 1\n"
            "entries.txt:2: already in the journal: 5.00 on day 15 of 202406, debit 1.1.1.01, "
            "credit 5.1.1.01, document 1\n"
            "entries.txt: nothing of the file was posted; to post these records again, give "
            "--allow-duplicates\n");
  EXPECT_TRUE(ReadFile(db_) == before);

  const RunResult allowed = Run({"post", "entries.txt", "--document", "1", "--allow-duplicates"});
  EXPECT_EQ(allowed.exit_code, 0) << allowed.err;
  EXPECT_EQ(Entries(), 8);
}

TEST_F(BooksStayWholeTest, AnotherDocumentIsNotADuplicate) {
  WriteFile(dir_ + "/entries.txt", TwoRecords());
  const RunResult r = Run({"post", "entries.txt", "--document", "2"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  // Without a document number the entries hold none, which is another
  // document again; posted twice that way, the second is refused.
  EXPECT_EQ(Run({"post", "entries.txt"}).exit_code, 0);
  const RunResult again = Run({"post", "entries.txt"});
  EXPECT_EQ(again.exit_code, 1);
  EXPECT_NE(again.err.find("entries.txt:1: already in the journal: 123.45 on day 15 of 202406, "
                           "debit 1.1.1.01, credit 3.1.1.01, document (none)\n"),
            std::string::npos)
      << again.err;
  EXPECT_EQ(Entries(), 12);
}

// A journal entry answers for one record only: a file that holds a record
// twice, posted once before, has one duplicate, on its first line.
TEST_F(BooksStayWholeTest, EachEntryAnswersForOneRecord) {
  const std::string first_record = TwoRecords().substr(0, TwoRecords().find('\n') + 1);
  WriteFile(dir_ + "/entries.txt", first_record + first_record);
  const RunResult r = Run({"post", "entries.txt", "--document", "1"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "entries.txt:1: already in the journal: 123.45 on day 15 of 202406, debit 1.1.1.01, "
            "credit 3.1.1.01, document 1\n"
            "entries.txt: nothing of the file was posted; to post these records again, give "
            "--allow-duplicates\n");
  EXPECT_EQ(Entries(), 4);
}

// The small books hold entry 1 (3.1.1.01, credit) and entry 2 (1.1.1.01,
// debit, generated from entry 1), then entries 3 and 4 alike.
TEST_F(BooksStayWholeTest, DeletingTheGeneratedHalfDeletesThePair) {
  ASSERT_EQ(Imbalance(), 0);
  const RunResult r = Run({"delete-entry", "2", "--month", "202406", "--day", "15"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.err,
            "kvctb: entry 2 was generated from entry 1 (day 15 of month 202406); deleting entry 1 "
            "and every entry generated from it\n");
  EXPECT_EQ(r.out,
            "entry  month   deleted\n"
            "-----  ------  -------\n"
            "    1  202406  yes\n");
  EXPECT_EQ(Entries(), 2);
  EXPECT_EQ(Imbalance(), 0);
}

TEST_F(BooksStayWholeTest, DeletingAnEntryThatDoesNotExistIsAnError) {
  const std::string before = ReadFile(db_);
  const RunResult r = Run({"delete-entry", "9", "--month", "202406", "--day", "15"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "kvctb: error: there is no entry 9 on day 15 of month 202406\n");
  EXPECT_TRUE(ReadFile(db_) == before);
}

// ---- closed periods ----------------------------------------------------------------

// A record of 7.00 on 1 July 2024, from 1.1.1.01 to 3.1.1.01.
std::string LateRecord() {
  kvc::testing::RegistroCampos c;
  c.yymm = "2407";
  c.dia = "01";
  c.historico = "AJUSTE";
  c.conta1 = "1.1.1.01";
  c.conta2 = "3.1.1.01";
  c.centavos = 700;
  return kvc::testing::Registro(c) + "\n";
}

// The carried-forward rows of every account, per account and per division
// combination (without the surrogate sequence of the latter).
std::vector<std::string> CarriedForward(const std::string& db) {
  std::vector<std::string> rows;
  auto c = db::Connect("sqlite:" + db);
  for (const char* sql :
       {"select CONTA, ANO, SALDO from CTB_SALDO_ANTERIOR order by CONTA, ANO",
        "select CONTA, ANO, CENTRO_CUSTO, FONTE, CATEGORIA, REVENDA_DIVISAO, SALDO from "
        "CTB_SALDO_ANTERIOR_DIVISAO order by CONTA, ANO, CENTRO_CUSTO, FONTE, CATEGORIA, "
        "REVENDA_DIVISAO"}) {
    for (const auto& row : c->Query(sql, {}).rows) {
      std::string text;
      for (const auto& v : row) text += (v.IsNull() ? "null" : v.AsString()) + "|";
      rows.push_back(text);
    }
  }
  return rows;
}

TEST_F(BooksStayWholeTest, PostingInAClosedYearIsRefusedUnlessReopened) {
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  WriteFile(dir_ + "/late.txt", LateRecord());
  const std::string before = ReadFile(db_);
  const RunResult r = Run({"post", "late.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "late.txt:1: 2024-07-01 is in a closed year: the annual closing has been run up to "
            "2024 (its carried-forward balances exist); give --reopen to post there all the "
            "same\n"
            "late.txt: nothing of the file was posted\n");
  EXPECT_TRUE(ReadFile(db_) == before);

  const RunResult reopened = Run({"post", "late.txt", "--reopen"});
  EXPECT_EQ(reopened.exit_code, 0) << reopened.err;
  EXPECT_EQ(reopened.err,
            "kvctb: the change reaches a closed year: run its annual closing again: kvctb "
            "close-year 2024\n");
  EXPECT_EQ(Entries(), 6);
}

// The closing run again after a reopened change gives the rows a closing of
// the corrected books gives.
TEST_F(BooksStayWholeTest, ClosingAgainAfterAReopenedChangeMatchesAClosingOfTheCorrectedBooks) {
  WriteFile(dir_ + "/late.txt", LateRecord());
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  ASSERT_EQ(Run({"post", "late.txt", "--reopen"}).exit_code, 0);
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);

  const std::string corrected = DirectoryWithSmallBooks("corrected_books");
  WriteFile(corrected + "/late.txt", LateRecord());
  ASSERT_EQ(
      RunKvctb({"--db", "sqlite:books.db", "--quiet", "post", "late.txt"}, In(corrected)).exit_code,
      0);
  ASSERT_EQ(RunKvctb({"--db", "sqlite:books.db", "--quiet", "close-year", "2024"}, In(corrected))
                .exit_code,
            0);
  const auto expected = CarriedForward(corrected + "/books.db");
  EXPECT_EQ(CarriedForward(db_), expected);
  // And the change is in them: 1.1.1.01 carries 128.45 + 7.00.
  EXPECT_NE(std::find(expected.begin(), expected.end(), "1.1.1.01|2024|135.45|"), expected.end());
}

TEST_F(BooksStayWholeTest, DeletingInAPeriodClosedByTheResultIsRefusedUnlessReopened) {
  ASSERT_EQ(Run({"close-result", "--month", "202406", "--day", "30", "--year", "2024", "--history",
                 "99", "--result-account", "2.9.1.01", "--confirm"})
                .exit_code,
            0);
  const std::string before = ReadFile(db_);
  const RunResult r = Run({"delete-entry", "1", "--month", "202406", "--day", "15"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: entry 1 cannot be deleted: 2024-06-15 is in a closed period: the result "
            "was calculated up to 2024-06-30; give --reopen to delete it all the same\n");
  EXPECT_TRUE(ReadFile(db_) == before);

  const RunResult reopened =
      Run({"delete-entry", "1", "--month", "202406", "--day", "15", "--reopen"});
  EXPECT_EQ(reopened.exit_code, 0) << reopened.err;
  EXPECT_EQ(reopened.err,
            "kvctb: the result calculated up to 2024-06-30 does not include the change, and a new "
            "close-result starts on the day after it: close the change's result by hand, with an "
            "entry to the result account\n");
}

// A company whose FAT_NUMERACAO_LIVROS row is missing (set up by other
// means than kvctb init) still gets its closing date recorded: the row is
// created before the calculation.
TEST_F(BooksStayWholeTest, TheResultCalculationRecordsItsDateWithoutTheCompanyRow) {
  db::Connect("sqlite:" + db_)->Execute("delete from FAT_NUMERACAO_LIVROS", {});
  ASSERT_EQ(Run({"close-result", "--month", "202406", "--day", "30", "--year", "2024", "--history",
                 "99", "--result-account", "2.9.1.01", "--confirm"})
                .exit_code,
            0);
  const auto rows = db::Connect("sqlite:" + db_)
                        ->Query("select ANOMES_APURACAO_RESULTADO from FAT_NUMERACAO_LIVROS", {})
                        .rows;
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows.at(0).at(0).AsString().substr(0, 10), "2024-06-30");
  const RunResult again = Run({"delete-entry", "1", "--month", "202406", "--day", "15"});
  EXPECT_EQ(again.exit_code, 1);
}

TEST_F(BooksStayWholeTest, AResultCalculationCannotMoveItsDateBack) {
  ASSERT_EQ(Run({"close-result", "--month", "202406", "--day", "30", "--year", "2024", "--history",
                 "99", "--result-account", "2.9.1.01", "--confirm"})
                .exit_code,
            0);
  const std::string before = ReadFile(db_);
  const RunResult r = Run({"close-result", "--month", "202405", "--day", "31", "--year", "2024",
                           "--history", "99", "--result-account", "2.9.1.01", "--confirm"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: the result was already calculated up to 2024-06-30: a calculation "
            "closing on 2024-05-31 would move that date back, and the next one would close the "
            "movement after 2024-05-31 a second time\n");
  EXPECT_TRUE(ReadFile(db_) == before);
}

// The result calculation writes each closing entry and its counter-entry in
// the result account unlinked: either alone cannot be deleted.
TEST_F(BooksStayWholeTest, AClosingEntryCannotBeDeletedAlone) {
  ASSERT_EQ(Run({"close-result", "--month", "202406", "--day", "30", "--year", "2024", "--history",
                 "99", "--result-account", "2.9.1.01", "--confirm"})
                .exit_code,
            0);
  const auto rows = db::Connect("sqlite:" + db_)
                        ->Query(
                            "select LANCAMENTO from CTB_LANCAMENTO where ANO_MES = 202406 "
                            "and DIA = 30 order by LANCAMENTO",
                            {})
                        .rows;
  ASSERT_GE(rows.size(), 2u);
  const std::string before = ReadFile(db_);
  for (const auto& row : rows) {
    const std::string entry = row.at(0).AsString();
    const RunResult r =
        Run({"delete-entry", entry, "--month", "202406", "--day", "30", "--reopen"});
    EXPECT_EQ(r.exit_code, 1) << entry;
    EXPECT_EQ(r.err, "kvctb: error: entry " + entry +
                         " is not one half of a posted pair (the result calculation and the "
                         "annual closing write such entries): deleting it alone would unbalance "
                         "the journal\n");
  }
  EXPECT_TRUE(ReadFile(db_) == before);
  EXPECT_EQ(Imbalance(), 0);
}

// ---- a closing with errors --------------------------------------------------------

TEST_F(BooksStayWholeTest, AClosingWithErrorsLeavesThePreviousClosingIntact) {
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  const auto first = CarriedForward(db_);
  WriteFile(dir_ + "/late.txt", LateRecord());
  ASSERT_EQ(Run({"post", "late.txt", "--reopen"}).exit_code, 0);
  db::Connect("sqlite:" + db_)
      ->Execute(
          "create trigger block_insert before insert on CTB_SALDO_ANTERIOR when new.CONTA = "
          "'3.1.1.01' begin select raise(fail, 'blocked by the test'); end",
          {});
  const RunResult r = Run({"--format", "csv", "close-year", "2024"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.out.find("blocked by the test"), std::string::npos) << r.out;
  EXPECT_EQ(r.err,
            "kvctb: error: the annual closing of 2024 met 1 error row and was rolled back: the "
            "carried-forward balances are as they were (--keep-partial keeps what a closing with "
            "errors wrote)\n");
  EXPECT_EQ(CarriedForward(db_), first);

  const RunResult kept = Run({"close-year", "2024", "--keep-partial"});
  EXPECT_EQ(kept.exit_code, 3);
  EXPECT_NE(CarriedForward(db_), first);
}

}  // namespace
}  // namespace kvc::cli::testing
