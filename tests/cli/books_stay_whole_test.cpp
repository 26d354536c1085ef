// What kvctb does so that the books stay whole, beyond refusing bad input:
// a file posted twice is stopped, the deletion of half a pair deletes the
// pair, closed periods stay closed and a closing with errors is rolled
// back. Each refusal exits 1 before anything is written and leaves the
// database as it was (the SQLite file byte for byte, every row on a server).
//
// The commands run as whole processes on the small books (the chart of
// SmallChart() and the two records of TwoRecords() posted as document 1),
// on SQLite and on the Firebird server of KVC_TEST_FIREBIRD.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "support/firebird_target.h"
#include "support/records.h"
#include "support/test_db.h"

namespace kvc::cli::testing {
namespace {

// The small books on the backend of the test's parameter: a copy of the
// SQLite file, or a Firebird database that kvctb itself creates and loads
// (init, chart-import, post) for each test.
class Books {
 public:
  Books(const std::string& backend, const std::string& name) : dir_(NewDirectory(name)) {
    if (backend == "Sqlite") {
      dir_ = DirectoryWithSmallBooks(name);
      url_ = "sqlite:" + dir_ + "/books.db";
      file_ = dir_ + "/books.db";
      return;
    }
    kvc::testing::FirebirdTarget t;
    if (!kvc::testing::ParseFirebirdTarget(t)) return;
    kvc::testing::ShutdownFirebirdClientAtExit();
    static int serial = 0;
    const std::string path = t.directory + "/kvctb_books_" + std::to_string(getpid()) + "_" +
                             std::to_string(++serial) + ".fdb";
    location_ = t.host + ":" + path;
    target_ = t;
    Drop();
    url_ = "firebird://" + t.user + ":" + t.password + "@" + t.host + "/" + path;
    LoadSmallBooks(url_, dir_);
  }
  ~Books() { Drop(); }
  Books(const Books&) = delete;
  Books& operator=(const Books&) = delete;

  bool ok() const { return !url_.empty(); }
  bool sqlite() const { return !file_.empty(); }
  const std::string& dir() const { return dir_; }
  const std::string& url() const { return url_; }

  // What "as it was" compares: the SQLite file byte for byte (with no
  // rollback journal beside it), or every row of every table on a server.
  std::string Snapshot() const {
    if (sqlite()) return ReadFile(file_) + (FileExists(file_ + "-journal") ? "+journal" : "");
    std::ostringstream text;
    auto c = db::Connect(url_);
    for (const auto& [table, rows] : kvc::testing::TodasAsTabelas(*c)) {
      text << table << "\n";
      for (const auto& row : rows) {
        for (const auto& v : row) text << v << "\x1f";
        text << "\n";
      }
    }
    return text.str();
  }

 private:
  void Drop() {
    if (!location_.empty()) kvc::testing::DropFirebirdDatabaseIfThere(location_, target_);
  }

  std::string dir_;
  std::string url_;
  std::string file_;
  std::string location_;
  kvc::testing::FirebirdTarget target_;
};

class BooksStayWholeTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info->name();
    std::replace(name.begin(), name.end(), '/', '_');
    books_ = std::make_unique<Books>(GetParam(), name);
    if (!books_->ok()) {
      const char* require = std::getenv("KVC_REQUIRE_SERVERS");
      if (require && std::string(require) == "1") FAIL() << "KVC_TEST_FIREBIRD is required";
      GTEST_SKIP() << "KVC_TEST_FIREBIRD not set";
    }
    dir_ = books_->dir();
  }

  RunResult Run(const std::vector<std::string>& args) {
    std::vector<std::string> all = {"--db", books_->url(), "--quiet"};
    all.insert(all.end(), args.begin(), args.end());
    return RunKvctb(all, In(dir_));
  }

  // The result calculation of 2024 up to a day, committed, into 2.9.1.01.
  RunResult CloseResult(const std::string& month, const std::string& day) {
    return Run({"close-result", "--month", month, "--day", day, "--year", "2024", "--history", "99",
                "--result-account", "2.9.1.01", "--confirm"});
  }

  std::string Snapshot() const { return books_->Snapshot(); }
  std::unique_ptr<db::Connection> Db() const { return db::Connect(books_->url()); }

  long long Entries() {
    return Db()->Query("select count(*) from CTB_LANCAMENTO", {}).rows.at(0).at(0).AsInteger();
  }

  // Debits minus credits of the whole journal, in cents.
  long long Imbalance() {
    return std::llround(
        Db()->Query("select coalesce(sum(case when NATUREZA = 'D' then VAL_LANCAMENTO else "
                    "-VAL_LANCAMENTO end), 0) from CTB_LANCAMENTO",
                    {})
            .rows.at(0)
            .at(0)
            .AsFloat() *
        100);
  }

  // Makes inserts of `conta` into CTB_SALDO_ANTERIOR fail with "blocked by
  // the test", as a refused write would.
  void BlockCarriedForwardInsert(const std::string& conta) {
    auto c = Db();
    if (books_->sqlite()) {
      c->Execute(
          "create trigger block_insert before insert on CTB_SALDO_ANTERIOR when "
          "new.CONTA = '" +
              conta + "' begin select raise(fail, 'blocked by the test'); end",
          {});
      return;
    }
    c->Execute("create exception blocked 'blocked by the test'", {});
    c->Execute(
        "create trigger block_insert for CTB_SALDO_ANTERIOR before insert as begin if "
        "(new.CONTA = '" +
            conta + "') then exception blocked; end",
        {});
  }

  std::unique_ptr<Books> books_;
  std::string dir_;
};

TEST_P(BooksStayWholeTest, TheSameFileTwiceIsRefusedUnlessAllowed) {
  WriteFile(dir_ + "/entries.txt", TwoRecords());
  const std::string before = Snapshot();
  const RunResult r = Run({"post", "entries.txt", "--document", "1"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "entries.txt:1: already in the journal: 123.45 on day 15 of 202406, debit 1.1.1.01, "
            "credit 3.1.1.01, document 1\n"
            "entries.txt:2: already in the journal: 5.00 on day 15 of 202406, debit 1.1.1.01, "
            "credit 5.1.1.01, document 1\n"
            "entries.txt: nothing of the file was posted; to post these records again, give "
            "--allow-duplicates\n");
  EXPECT_TRUE(Snapshot() == before);

  const RunResult allowed = Run({"post", "entries.txt", "--document", "1", "--allow-duplicates"});
  EXPECT_EQ(allowed.exit_code, 0) << allowed.err;
  EXPECT_EQ(Entries(), 8);
}

TEST_P(BooksStayWholeTest, AnotherDocumentIsNotADuplicate) {
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
TEST_P(BooksStayWholeTest, EachEntryAnswersForOneRecord) {
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
TEST_P(BooksStayWholeTest, DeletingTheGeneratedHalfDeletesThePair) {
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

TEST_P(BooksStayWholeTest, DeletingAnEntryThatDoesNotExistIsAnError) {
  const std::string before = Snapshot();
  const RunResult r = Run({"delete-entry", "9", "--month", "202406", "--day", "15"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "kvctb: error: there is no entry 9 on day 15 of month 202406\n");
  EXPECT_TRUE(Snapshot() == before);
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
std::vector<std::string> CarriedForward(const std::string& url) {
  std::vector<std::string> rows;
  auto c = db::Connect(url);
  for (const char* sql :
       {"select CONTA, ANO, SALDO from CTB_SALDO_ANTERIOR order by CONTA, ANO",
        "select CONTA, ANO, CENTRO_CUSTO, FONTE, CATEGORIA, REVENDA_DIVISAO, SALDO from "
        "CTB_SALDO_ANTERIOR_DIVISAO order by CONTA, ANO, CENTRO_CUSTO, FONTE, CATEGORIA, "
        "REVENDA_DIVISAO"}) {
    for (const auto& row : c->Query(sql, {}).rows) {
      std::string text;
      for (const auto& v : row)
        text += (v.IsNull()    ? "null"
                 : v.IsFloat() ? fmt::format("{:.2f}", v.AsFloat())
                               : v.AsString()) +
                "|";
      rows.push_back(text);
    }
  }
  return rows;
}

TEST_P(BooksStayWholeTest, PostingInAClosedYearIsRefusedUnlessReopened) {
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  WriteFile(dir_ + "/late.txt", LateRecord());
  const std::string before = Snapshot();
  const RunResult r = Run({"post", "late.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "late.txt:1: 2024-07-01 is in a closed year: the annual closing has been run up to "
            "2024 (its carried-forward balances exist); give --reopen to post there all the "
            "same\n"
            "late.txt: nothing of the file was posted\n");
  EXPECT_TRUE(Snapshot() == before);

  const RunResult reopened = Run({"post", "late.txt", "--reopen"});
  EXPECT_EQ(reopened.exit_code, 0) << reopened.err;
  EXPECT_EQ(reopened.err,
            "kvctb: the change reaches a closed year: run its annual closing again: kvctb "
            "close-year 2024\n");
  EXPECT_EQ(Entries(), 6);
}

// The closing run again after a reopened change gives the rows a closing of
// the corrected books gives.
TEST_P(BooksStayWholeTest, ClosingAgainAfterAReopenedChangeMatchesAClosingOfTheCorrectedBooks) {
  WriteFile(dir_ + "/late.txt", LateRecord());
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  ASSERT_EQ(Run({"post", "late.txt", "--reopen"}).exit_code, 0);
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);

  const Books corrected(GetParam(), "corrected_books");
  WriteFile(corrected.dir() + "/late.txt", LateRecord());
  ASSERT_EQ(RunKvctb({"--db", corrected.url(), "--quiet", "post", "late.txt"}, In(corrected.dir()))
                .exit_code,
            0);
  ASSERT_EQ(
      RunKvctb({"--db", corrected.url(), "--quiet", "close-year", "2024"}, In(corrected.dir()))
          .exit_code,
      0);
  const auto expected = CarriedForward(corrected.url());
  EXPECT_EQ(CarriedForward(books_->url()), expected);
  // And the change is in them: 1.1.1.01 carries 128.45 + 7.00.
  EXPECT_NE(std::find(expected.begin(), expected.end(), "1.1.1.01|2024|135.45|"), expected.end());
}

TEST_P(BooksStayWholeTest, DeletingInAPeriodClosedByTheResultIsRefusedUnlessReopened) {
  ASSERT_EQ(CloseResult("202406", "30").exit_code, 0);
  const std::string before = Snapshot();
  const RunResult r = Run({"delete-entry", "1", "--month", "202406", "--day", "15"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: entry 1 cannot be deleted: 2024-06-15 is in a closed period: the result "
            "was calculated up to 2024-06-30; give --reopen to delete it all the same\n");
  EXPECT_TRUE(Snapshot() == before);

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
TEST_P(BooksStayWholeTest, TheResultCalculationRecordsItsDateWithoutTheCompanyRow) {
  Db()->Execute("delete from FAT_NUMERACAO_LIVROS", {});
  ASSERT_EQ(CloseResult("202406", "30").exit_code, 0);
  const auto rows =
      Db()->Query("select ANOMES_APURACAO_RESULTADO from FAT_NUMERACAO_LIVROS", {}).rows;
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows.at(0).at(0).AsString().substr(0, 10), "2024-06-30");
  const RunResult again = Run({"delete-entry", "1", "--month", "202406", "--day", "15"});
  EXPECT_EQ(again.exit_code, 1);
}

TEST_P(BooksStayWholeTest, AResultCalculationCannotMoveItsDateBack) {
  ASSERT_EQ(CloseResult("202406", "30").exit_code, 0);
  const std::string before = Snapshot();
  const RunResult r = CloseResult("202405", "31");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: the result was already calculated up to 2024-06-30: a calculation "
            "closing on 2024-05-31 would move that date back, and the next one would close the "
            "movement after 2024-05-31 a second time\n");
  EXPECT_TRUE(Snapshot() == before);
}

TEST_P(BooksStayWholeTest, AResultCalculationInAClosedYearNeedsReopen) {
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  const std::string before = Snapshot();
  const RunResult r = CloseResult("202412", "31");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: the closing date is in a closed year: the annual closing has been run "
            "up to 2024 (its carried-forward balances exist); give --reopen to calculate the "
            "result all the same\n");
  EXPECT_TRUE(Snapshot() == before);

  const RunResult reopened =
      Run({"close-result", "--month", "202412", "--day", "31", "--year", "2024", "--history", "99",
           "--result-account", "2.9.1.01", "--confirm", "--reopen"});
  EXPECT_EQ(reopened.exit_code, 0) << reopened.err;
  EXPECT_EQ(reopened.err,
            "kvctb: the change reaches a closed year: run its annual closing again: kvctb "
            "close-year 2024\n");
  EXPECT_EQ(Imbalance(), 0);
}

// The result calculation writes each closing entry and its counter-entry in
// the result account unlinked: either alone cannot be deleted.
TEST_P(BooksStayWholeTest, AClosingEntryCannotBeDeletedAlone) {
  ASSERT_EQ(CloseResult("202406", "30").exit_code, 0);
  const auto rows = Db()->Query(
                            "select LANCAMENTO from CTB_LANCAMENTO where ANO_MES = 202406 "
                            "and DIA = 30 order by LANCAMENTO",
                            {})
                        .rows;
  ASSERT_GE(rows.size(), 2u);
  const std::string before = Snapshot();
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
  EXPECT_TRUE(Snapshot() == before);
  EXPECT_EQ(Imbalance(), 0);
}

// ---- a closing with errors --------------------------------------------------------

TEST_P(BooksStayWholeTest, AClosingWithErrorsLeavesThePreviousClosingIntact) {
  ASSERT_EQ(Run({"close-year", "2024"}).exit_code, 0);
  const auto first = CarriedForward(books_->url());
  WriteFile(dir_ + "/late.txt", LateRecord());
  ASSERT_EQ(Run({"post", "late.txt", "--reopen"}).exit_code, 0);
  BlockCarriedForwardInsert("3.1.1.01");
  const RunResult r = Run({"--format", "csv", "close-year", "2024"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.out.find("blocked by the test"), std::string::npos) << r.out;
  EXPECT_EQ(r.err,
            "kvctb: error: the annual closing of 2024 met 1 error row and was rolled back: the "
            "carried-forward balances are as they were (--keep-partial keeps what a closing with "
            "errors wrote)\n");
  EXPECT_EQ(CarriedForward(books_->url()), first);

  const RunResult kept = Run({"close-year", "2024", "--keep-partial"});
  EXPECT_EQ(kept.exit_code, 3);
  EXPECT_NE(CarriedForward(books_->url()), first);
}

// ---- records the posting refuses, and one it takes ---------------------------

TEST_P(BooksStayWholeTest, AccountsOutsideTheChartOrSyntheticAreRefused) {
  kvc::testing::RegistroCampos unknown = SmallBooksRecord();
  unknown.conta2 = "3.1.1.99";
  kvc::testing::RegistroCampos synthetic = SmallBooksRecord();
  synthetic.conta1 = "1";
  WriteFile(dir_ + "/entries.txt", kvc::testing::Registro(SmallBooksRecord()) + "\n" +
                                       kvc::testing::Registro(unknown) + "\n" +
                                       kvc::testing::Registro(synthetic) + "\n");
  const std::string before = Snapshot();
  const RunResult r = Run({"post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "entries.txt:2: second account field (positions 94-113): account 3.1.1.99 is not in "
            "the chart of company 1\n"
            "entries.txt:3: first account field (positions 74-93): account 1 is a synthetic "
            "account; entries go to the analytic accounts beneath it\n"
            "entries.txt: nothing of the file was posted\n");
  EXPECT_TRUE(Snapshot() == before);
}

TEST_P(BooksStayWholeTest, DatesThatDoNotExistAndUnknownSideMarksAreRefused) {
  kvc::testing::RegistroCampos february = SmallBooksRecord();
  february.yymm = "2402";
  february.dia = "30";
  kvc::testing::RegistroCampos thirteen = SmallBooksRecord();
  thirteen.yymm = "2413";
  kvc::testing::RegistroCampos side = SmallBooksRecord();
  side.marca = "C";
  WriteFile(dir_ + "/entries.txt", kvc::testing::Registro(february) + "\n" +
                                       kvc::testing::Registro(thirteen) + "\n" +
                                       kvc::testing::Registro(side) + "\n");
  const std::string before = Snapshot();
  const RunResult r = Run({"post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "entries.txt:1: day (positions 37-38) is not a day of 2024-02: '30'\n"
            "entries.txt:2: year and month (positions 33-36) is not YYMM: '2413'\n"
            "entries.txt:3: side mark (position 118) is 'C': \"-\" credits the first account "
            "field, a blank or \"+\" debits it\n"
            "entries.txt: nothing of the file was posted\n");
  EXPECT_TRUE(Snapshot() == before);
}

TEST_P(BooksStayWholeTest, ANameWithAnApostropheIsPostedWithTheTypographicOne) {
  kvc::testing::RegistroCampos c = SmallBooksRecord();
  c.historico = "D'AVILA";
  WriteFile(dir_ + "/entries.txt", kvc::testing::Registro(c) + "\n");
  const RunResult r = Run({"post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.err,
            "kvctb: entries.txt: the apostrophes of the complementary history on line 1 are "
            "written as \u2019 (U+2019): the module writes that text between quotes, which an "
            "apostrophe would end\n");
  std::vector<std::string> histories;
  for (const auto& row : Db()->Query("select HIS_COMPLEMENTAR from CTB_LANCAMENTO where DIA = 20 "
                                     "and ANO_MES = 202406",
                                     {})
                             .rows) {
    std::string h = row.at(0).AsString();
    h.erase(h.find_last_not_of(' ') + 1);
    histories.push_back(h);
  }
  EXPECT_EQ(histories, (std::vector<std::string>{"D\u2019AVILA", "D\u2019AVILA"}));
}

// The small books have entries in June 2024 only: the months without
// entries need no monthly rows (a regression: they were all required, so
// --monthly was refused for good on books with a month of no movement).
TEST_P(BooksStayWholeTest, MonthlyBalancesAreRefusedUntilBuiltThenMatchTheJournal) {
  const RunResult refused = Run({"balance", "3.1.1.01", "--month", "202406", "--monthly"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_EQ(refused.err,
            "kvctb: error: --monthly reads the movement of 202301 to 202406 from the monthly "
            "balance tables, which hold nothing for 202406: fill them from the journal with "
            "kvctb monthly-build --from 202301 --to 202406\n");
  ASSERT_EQ(Run({"monthly-build", "--from", "202401", "--to", "202412"}).exit_code, 0);
  const RunResult journal = Run({"--format", "csv", "balance", "3.1.1.01", "--month", "202406"});
  const RunResult monthly =
      Run({"--format", "csv", "balance", "3.1.1.01", "--month", "202406", "--monthly"});
  EXPECT_EQ(monthly.exit_code, 0) << monthly.err;
  EXPECT_EQ(monthly.out, journal.out);
  EXPECT_NE(journal.out.find("-123.45"), std::string::npos) << journal.out;
}

TEST_P(BooksStayWholeTest, AnotherStructureVersionNamesBoth) {
  Db()->Execute("update GER_VERSAO_ESTRUTURA set VERSAO = '1.00'", {});
  WriteFile(dir_ + "/entries.txt", kvc::testing::Registro(SmallBooksRecord()) + "\n");
  const std::string before = Snapshot();
  const RunResult r = Run({"post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: the database has structure version 1.00 and this kvctb works with "
            "version 2.09; nothing was read or written\n");
  EXPECT_TRUE(Snapshot() == before);
}

// ---- cost centres, division types and the chart -----------------------------

// A record of 2.00 on day `day` of June 2024, from 1.1.1.01 to 3.1.1.01,
// with the division code `code`.
std::string RecordWithCode(const std::string& day, const std::string& code) {
  kvc::testing::RegistroCampos c = SmallBooksRecord();
  c.dia = day;
  c.historico = "COM CENTRO";
  c.codigo_divisao = code;
  c.centavos = 200;
  return kvc::testing::Registro(c) + "\n";
}

TEST_P(BooksStayWholeTest, CostCentresAreDefinedListedAndNeverTwice) {
  const RunResult none = Run({"--format", "csv", "cost-centres"});
  EXPECT_EQ(none.exit_code, 0) << none.err;
  EXPECT_EQ(none.out, "cost_centre,description,inactive\n");
  ASSERT_EQ(Run({"cost-centre-add", "3", "PECAS E ACESSORIOS"}).exit_code, 0);
  ASSERT_EQ(Run({"cost-centre-add", "9", "DESATIVADO", "--inactive"}).exit_code, 0);
  EXPECT_EQ(Run({"--format", "csv", "cost-centres"}).out,
            "cost_centre,description,inactive\n3,PECAS E ACESSORIOS,no\n9,DESATIVADO,yes\n");
  EXPECT_EQ(Run({"--format", "csv", "cost-centres", "--active-only"}).out,
            "cost_centre,description,inactive\n3,PECAS E ACESSORIOS,no\n");
  EXPECT_EQ(Run({"--format", "csv", "cost-centre", "3"}).out,
            "cost_centre,description\n3,PECAS E ACESSORIOS\n");

  const std::string before = Snapshot();
  const RunResult again = Run({"cost-centre-add", "3", "OUTRO"});
  EXPECT_EQ(again.exit_code, 1);
  EXPECT_EQ(again.err, "kvctb: error: cost centre 3 already exists: PECAS E ACESSORIOS\n");
  EXPECT_EQ(Run({"cost-centre-add", "-1", "X"}).exit_code, 2);
  const RunResult blank = Run({"cost-centre-add", "4", " "});
  EXPECT_EQ(blank.exit_code, 2);
  EXPECT_EQ(blank.err, "kvctb: DESCRIPTION: is empty\n");
  EXPECT_TRUE(Snapshot() == before);
}

TEST_P(BooksStayWholeTest, DivisionTypesAreDefinedListedAndNeverTwice) {
  EXPECT_EQ(Run({"--format", "csv", "division-types"}).out, "level,type\n");
  ASSERT_EQ(Run({"division-type-add", "1", "C"}).exit_code, 0);
  ASSERT_EQ(Run({"division-type-add", "2", "R"}).exit_code, 0);
  EXPECT_EQ(Run({"--format", "csv", "division-types"}).out, "level,type\n1,C\n2,R\n");

  const std::string before = Snapshot();
  const RunResult again = Run({"division-type-add", "1", "F"});
  EXPECT_EQ(again.exit_code, 1);
  EXPECT_EQ(again.err, "kvctb: error: division level 1 already has type C\n");
  const RunResult lower = Run({"division-type-add", "3", "c"});
  EXPECT_EQ(lower.exit_code, 2);
  EXPECT_EQ(lower.err, "kvctb: TYPE: 'c' is not one capital letter (C is the cost centre)\n");
  EXPECT_EQ(Run({"division-type-add", "0", "C"}).exit_code, 2);
  EXPECT_TRUE(Snapshot() == before);
}

TEST_P(BooksStayWholeTest, TheChartExportsAsChartImportReadsIt) {
  const RunResult r = Run({"chart-export"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.out, SmallChart());
  EXPECT_EQ(Run({"--format", "json", "chart-export"}).out, SmallChart());
  // Loaded as the chart of another company, it exports the same.
  WriteFile(dir_ + "/chart.csv", r.out);
  const RunResult import = Run({"--company", "2", "chart-import", "chart.csv"});
  ASSERT_EQ(import.exit_code, 0) << import.err;
  EXPECT_EQ(Run({"--company", "2", "chart-export"}).out, SmallChart());
}

// The small chart gives every account division level 1, and a new database
// has no division level of type C: the posting's division split drops the
// code, and kvctb says why and what to do. Once level 1 is the cost-centre
// level and the cost centre exists, both entries keep it.
TEST_P(BooksStayWholeTest, ADroppedDivisionCodeIsExplained) {
  WriteFile(dir_ + "/coded.txt", RecordWithCode("20", "3"));
  const RunResult r = Run({"post", "coded.txt"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.err,
            "kvctb: coded.txt: line 1: the division code is not kept on account 1.1.1.01 (its "
            "entries get no cost centre): account 1.1.1.01 has division level 1, and division "
            "level 1 is not of type C (cost centre): define one with kvctb division-type-add 1 C\n"
            "kvctb: coded.txt: line 1: the division code is not kept on account 3.1.1.01 (its "
            "entries get no cost centre): account 3.1.1.01 has division level 1, and division "
            "level 1 is not of type C (cost centre): define one with kvctb division-type-add 1 "
            "C\n");
  const char* kept =
      "select count(*) from CTB_LANCAMENTO_DIVIDIDO where CENTRO_CUSTO = 3 and ANO_MES = 202406";
  EXPECT_EQ(Db()->Query(kept, {}).rows.at(0).at(0).AsInteger(), 0);

  ASSERT_EQ(Run({"division-type-add", "1", "C"}).exit_code, 0);
  ASSERT_EQ(Run({"cost-centre-add", "3", "VENDAS"}).exit_code, 0);
  WriteFile(dir_ + "/coded.txt", RecordWithCode("21", "3"));
  const RunResult after = Run({"post", "coded.txt"});
  EXPECT_EQ(after.exit_code, 0) << after.err;
  EXPECT_EQ(after.err, "");
  EXPECT_EQ(Db()->Query(kept, {}).rows.at(0).at(0).AsInteger(), 2);
}

TEST_P(BooksStayWholeTest, ADivisionCodeThatNamesNoCostCentreIsRefused) {
  ASSERT_EQ(Run({"division-type-add", "1", "C"}).exit_code, 0);
  WriteFile(dir_ + "/coded.txt", RecordWithCode("20", "7"));
  const std::string before = Snapshot();
  const RunResult r = Run({"post", "coded.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "coded.txt:1: division code (positions 13-16): 7 is not a cost centre of company 1; "
            "define it with kvctb cost-centre-add 7 DESCRIPTION\n"
            "coded.txt: nothing of the file was posted\n");
  EXPECT_TRUE(Snapshot() == before);

  // With the code in front of each account, the field that holds it is named.
  kvc::testing::RegistroCampos c = SmallBooksRecord();
  c.historico = "NO CAMPO";
  c.conta1 = "000071.1.1.01";
  c.conta2 = "     3.1.1.01";
  c.centavos = 200;
  WriteFile(dir_ + "/in_account.txt", kvc::testing::Registro(c) + "\n");
  const RunResult in_account = Run({"post", "in_account.txt", "--code-in-account"});
  EXPECT_EQ(in_account.exit_code, 1);
  EXPECT_EQ(in_account.err,
            "in_account.txt:1: first account field (positions 74-78): 00007 is not a cost centre "
            "of company 1; define it with kvctb cost-centre-add 7 DESCRIPTION\n"
            "in_account.txt: nothing of the file was posted\n");
  EXPECT_TRUE(Snapshot() == before);
}

INSTANTIATE_TEST_SUITE_P(Backends, BooksStayWholeTest, ::testing::Values("Sqlite", "Firebird"),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                           return info.param;
                         });

}  // namespace
}  // namespace kvc::cli::testing
