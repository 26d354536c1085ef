// Every kind of bad input a user can give kvctb, one test each: the exact
// message on standard error, the exit code, and the database file byte for
// byte as it was (no rollback journal left beside it). The README's table of
// hostile input lists these tests row by row.
//
// The commands run as whole processes on a copy of the small books
// (DirectoryWithSmallBooks): the chart of SmallChart() and two posted
// records.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "support/postgresql_target.h"
#include "support/records.h"

namespace kvc::cli::testing {
namespace {

namespace fs = std::filesystem;
using kvc::testing::Registro;
using kvc::testing::RegistroCampos;

class HostileInputTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = DirectoryWithSmallBooks(info->name());
    db_ = dir_ + "/books.db";
    before_ = ReadFile(db_);
    ASSERT_FALSE(before_.empty());
  }

  // Runs kvctb on the small books with `args` after the global options.
  RunResult Run(const std::vector<std::string>& args, RunOptions options = {}) {
    std::vector<std::string> all = {"--db", "sqlite:books.db", "--quiet"};
    all.insert(all.end(), args.begin(), args.end());
    options.cwd = dir_;
    return RunKvctb(all, options);
  }

  // Posts `text` written to entries.txt.
  RunResult Post(const std::string& text, RunOptions options = {}) {
    WriteFile(dir_ + "/entries.txt", text);
    return Run({"post", "entries.txt"}, options);
  }

  // The exit code, standard error exactly, nothing on standard output, and
  // the database file as it was.
  void ExpectRefused(const RunResult& r, int exit_code, const std::string& err) {
    EXPECT_EQ(r.exit_code, exit_code);
    EXPECT_EQ(r.err, err);
    EXPECT_EQ(r.out, "");
    ExpectDatabaseAsItWas();
  }

  void ExpectDatabaseAsItWas() {
    EXPECT_TRUE(ReadFile(db_) == before_) << "the database file changed";
    EXPECT_FALSE(FileExists(db_ + "-journal")) << "a rollback journal was left";
  }

  std::string dir_;
  std::string db_;
  std::string before_;
};

// ---- posting records -----------------------------------------------------------------

TEST_F(HostileInputTest, ShortRecord) {
  const std::string r = Registro(SmallBooksRecord()).substr(0, 120);
  ExpectRefused(Post(r + "\n"), 1,
                "entries.txt:1: record too short: 120 characters, the amount (positions 119-133) "
                "needs 133\n");
}

TEST_F(HostileInputTest, LongRecord) {
  const std::string r = Registro(SmallBooksRecord()) + std::string(5000, ' ');
  ExpectRefused(Post(r + "\n"), 1, "entries.txt:1: longer than 1000 bytes\n");
}

TEST_F(HostileInputTest, GarbledRecord) {
  std::string r = Registro(SmallBooksRecord());
  r[50] = '\x01';
  r[51] = '\0';
  ExpectRefused(Post(Registro(SmallBooksRecord()) + "\n" + r + "\n"), 1,
                "entries.txt:2: '" + r.substr(0, 40) + "...' holds a control character\n");
}

TEST_F(HostileInputTest, NonNumericAmount) {
  std::string r = Registro(SmallBooksRecord());
  r.replace(125, 3, "1x3");
  ExpectRefused(Post(r + "\n"), 1,
                "entries.txt:1: amount (positions 119-133) is not a number: '00000001x301000'\n");
}

TEST_F(HostileInputTest, NonUtf8Bytes) {
  std::string r = Registro(SmallBooksRecord());
  r[45] = '\xE9';  // Latin-1 e-acute
  ExpectRefused(Post(r + "\n"), 1,
                "entries.txt:1: '" + r.substr(0, 40) + "...' is not UTF-8 text\n");
}

TEST_F(HostileInputTest, DayThatDoesNotExist) {
  RegistroCampos c = SmallBooksRecord();
  c.yymm = "2402";
  c.dia = "30";
  ExpectRefused(Post(Registro(SmallBooksRecord()) + "\n" + Registro(c) + "\n"), 1,
                "entries.txt:2: day (positions 37-38) is not a day of 2024-02: '30'\n");
}

TEST_F(HostileInputTest, DayZero) {
  RegistroCampos c = SmallBooksRecord();
  c.dia = "00";
  ExpectRefused(Post(Registro(c) + "\n"), 1,
                "entries.txt:1: day (positions 37-38) is not a day of the month: '00'\n");
}

TEST_F(HostileInputTest, MonthThirteen) {
  RegistroCampos c = SmallBooksRecord();
  c.yymm = "2413";
  ExpectRefused(Post(Registro(c) + "\n"), 1,
                "entries.txt:1: year and month (positions 33-36) is not YYMM: '2413'\n");
}

TEST_F(HostileInputTest, UnknownSideMark) {
  RegistroCampos c = SmallBooksRecord();
  c.marca = "C";
  ExpectRefused(Post(Registro(c) + "\n"), 1,
                "entries.txt:1: side mark (position 118) is 'C': \"-\" credits the first account "
                "field, a blank or \"+\" debits it\n");
}

TEST_F(HostileInputTest, UnknownAccount) {
  RegistroCampos c = SmallBooksRecord();
  c.conta2 = "3.1.1.99";
  ExpectRefused(Post(Registro(SmallBooksRecord()) + "\n" + Registro(c) + "\n"), 1,
                "entries.txt:2: second account field (positions 94-113): account 3.1.1.99 is not "
                "in the chart of company 1\n"
                "entries.txt: nothing of the file was posted\n");
}

TEST_F(HostileInputTest, SyntheticAccount) {
  RegistroCampos c = SmallBooksRecord();
  c.conta1 = "1";
  ExpectRefused(Post(Registro(c) + "\n"), 1,
                "entries.txt:1: first account field (positions 74-93): account 1 is a synthetic "
                "account; entries go to the analytic accounts beneath it\n"
                "entries.txt: nothing of the file was posted\n");
}

TEST_F(HostileInputTest, EveryBadRecordIsReportedUpToTwenty) {
  std::string text;
  std::string expected;
  for (int i = 1; i <= 25; ++i) {
    RegistroCampos c = SmallBooksRecord();
    c.conta2 = "9." + std::to_string(i);
    text += Registro(c) + "\n";
    if (i <= 20)
      expected += "entries.txt:" + std::to_string(i) +
                  ": second account field (positions 94-113): account 9." + std::to_string(i) +
                  " is not in the chart of company 1\n";
  }
  expected +=
      "entries.txt: ... and 5 more (the first 20 are shown)\n"
      "entries.txt: nothing of the file was posted\n";
  ExpectRefused(Post(text), 1, expected);
}

// Accepted: the apostrophe becomes U+2019, which cannot end the quoted text
// the module writes, and the comment marker stays inside that text.
TEST_F(HostileInputTest, QuoteAndCommentMarkerInTheHistory) {
  RegistroCampos c = SmallBooksRecord();
  c.historico = "X' or 1=1 --";
  WriteFile(dir_ + "/entries.txt", Registro(c) + "\n");
  const RunResult r = Run({"--trace-sql", "trace.jsonl", "post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.err,
            "kvctb: entries.txt: the apostrophes of the complementary history on line 1 are "
            "written as \u2019 (U+2019): the module writes that text between quotes, which an "
            "apostrophe would end\n");
  auto c2 = db::Connect("sqlite:" + db_);
  EXPECT_EQ(c2->Query("select count(*) from CTB_LANCAMENTO where trim(HIS_COMPLEMENTAR) = 'X\u2019 "
                      "or 1=1 --'",
                      {})
                .rows.at(0)
                .at(0)
                .AsInteger(),
            2);
  // Every statement that carries the history holds it whole between quotes.
  const std::string trace = ReadFile(dir_ + "/trace.jsonl");
  EXPECT_NE(trace.find("'X\u2019 or 1=1 --"), std::string::npos);
  EXPECT_EQ(trace.find("X'"), std::string::npos);
}

TEST_F(HostileInputTest, EmptyRecordFile) {
  ExpectRefused(Post(""), 1, "entries.txt:1: no records\n");
}

TEST_F(HostileInputTest, MissingRecordFile) {
  ExpectRefused(Run({"post", "absent.txt"}), 1,
                "kvctb: error: cannot read 'absent.txt': No such file or directory\n");
}

TEST_F(HostileInputTest, DirectoryAsRecordFile) {
  fs::create_directory(dir_ + "/records");
  ExpectRefused(Run({"post", "records"}), 1,
                "kvctb: error: cannot read 'records': it is a directory\n");
}

// ---- the chart -------------------------------------------------------------------------

TEST_F(HostileInputTest, AccountThatIsItsOwnSuperior) {
  WriteFile(dir_ + "/chart.csv",
            "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO,DES_CONTA\n"
            "7,7,S,0,N,Circular\n");
  ExpectRefused(Run({"chart-import", "chart.csv"}), 1,
                "chart.csv:2: account 7 is in a cycle of parents\n");
}

// ---- option values ---------------------------------------------------------------------

TEST_F(HostileInputTest, MalformedList) {
  ExpectRefused(Run({"balance", "3", "--month", "202406", "--cost-centres", "1,,2"}), 2,
                "kvctb: --cost-centres: list item '' is not a number (use numbers separated by "
                "commas, such as 3,7)\n");
}

TEST_F(HostileInputTest, QuoteAndCommentMarkerInAnOption) {
  ExpectRefused(
      Run({"balance", "3", "--month", "202406", "--exclude-dealerships", "1) or '1'='1' --"}), 2,
      "kvctb: --exclude-dealerships: list item '1) or '1'='1' --' is not a number (use numbers "
      "separated by commas, such as 3,7)\n");
}

// Without --by-division the movement is the whole account's: a cost centre
// given there would be ignored.
TEST_F(HostileInputTest, FilterTheCommandWouldIgnore) {
  ExpectRefused(
      Run({"movement", "3.1.1.01", "--from", "202401", "--to", "202406", "--cost-centre", "2"}), 2,
      "kvctb: --cost-centre: takes effect only with --by-division (without it the command gives "
      "the whole account's figure)\n");
  ExpectRefused(Run({"opening", "1.1.1.01", "--month", "202407", "--modality", "V"}), 2,
                "kvctb: --modality: takes effect only with --by-division, or as SPED (which adds "
                "the second book)\n");
}

// ---- the database ----------------------------------------------------------------------

TEST_F(HostileInputTest, UnreachableServer) {
  const RunResult r = RunKvctb({"--db", "postgresql://kvc@127.0.0.1:1/books", "--quiet", "balance",
                                "3", "--month", "202406"},
                               {dir_, {{"KVCTB_PASSWORD", "secret"}}, ""});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: cannot connect to postgresql://kvc@127.0.0.1:1/books: Cannot establish "
            "connection to the database.\nconnection to server at \"127.0.0.1\", port 1 failed: "
            "Connection refused\n\tIs the server running on that host and accepting TCP/IP "
            "connections?\n");
  EXPECT_EQ(r.err.find("secret"), std::string::npos);
  ExpectDatabaseAsItWas();
}

// The PostgreSQL server of KVC_TEST_POSTGRESQL, or false when the test is
// skipped (or failed: the servers are required).
bool Postgresql(kvc::testing::PostgresqlTarget& t) {
  if (kvc::testing::ParsePostgresqlTarget(t)) return true;
  const char* require = std::getenv("KVC_REQUIRE_SERVERS");
  if (require && std::string(require) == "1") ADD_FAILURE() << "KVC_TEST_POSTGRESQL is required";
  return false;
}

TEST_F(HostileInputTest, WrongPassword) {
  kvc::testing::PostgresqlTarget t;
  if (!Postgresql(t)) GTEST_SKIP() << "KVC_TEST_POSTGRESQL not set";
  // The server's URL with the password left out, and a wrong one given.
  const std::string without = "postgresql://" + t.user + "@" + t.HostPort() + "/" + t.dbname;
  const RunResult r = RunKvctb({"--db", without, "--quiet", "balance", "3", "--month", "202406"},
                               {dir_, {{"KVCTB_PASSWORD", "not-the-password"}}, ""});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err, "kvctb: error: cannot connect to " + without +
                       ": Cannot establish connection to the database.\nconnection to server at "
                       "\"" +
                       t.host + "\", port " + (t.port.empty() ? "5432" : t.port) +
                       " failed: FATAL:  password authentication failed for user \"" + t.user +
                       "\"\n");
  EXPECT_EQ(r.err.find("not-the-password"), std::string::npos);
}

// Another program holds the write lock past the wait: reported as locked,
// with the wait, not as a database without its schema.
// kvctb waits as long as --busy-timeout says, from its first statement on
// (the page-cache setting that reads the file once waited the connection's
// default 30 s before the user's timeout was set).
TEST_F(HostileInputTest, DatabaseLockedByAnotherProgram) {
  auto holder = db::Connect("sqlite:" + db_);
  holder->Execute("begin exclusive", {});
  const auto start = std::chrono::steady_clock::now();
  const RunResult r = Run({"--busy-timeout", "1", "balance", "3", "--month", "202406"});
  const auto waited = std::chrono::steady_clock::now() - start;
  holder->Execute("rollback", {});
  EXPECT_LT(waited, std::chrono::seconds(10));
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: sqlite3_statement_backend::prepare: database is locked\n"
            "kvctb: the database is locked: another program held it for longer than the 1 s "
            "kvctb waits (--busy-timeout); run the command again when that program has finished; "
            "nothing of this command was written\n");
  EXPECT_EQ(r.out, "");
  ExpectDatabaseAsItWas();
}

// init creates the tables, not a PostgreSQL database: the user reads what
// must exist first.
TEST_F(HostileInputTest, PostgresqlDatabaseThatDoesNotExist) {
  kvc::testing::PostgresqlTarget t;
  if (!Postgresql(t)) GTEST_SKIP() << "KVC_TEST_POSTGRESQL not set";
  const std::string missing =
      "postgresql://" + t.user + "@" + t.HostPort() + "/kvctb_no_such_database";
  const RunResult r =
      RunKvctb({"--db", missing, "--quiet", "init"}, {dir_, {{"KVCTB_PASSWORD", t.password}}, ""});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.err.find("FATAL:  database \"kvctb_no_such_database\" does not exist\n"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("\nkvctb: kvctb init creates the tables in a PostgreSQL database that "
                       "exists: create the database first (for example: createdb -h HOST -U "
                       "USER DBNAME); nothing of this command was written\n"),
            std::string::npos)
      << r.err;
}

TEST_F(HostileInputTest, DatabaseOfAnotherStructureVersion) {
  // The version an older installation holds.
  db::Connect("sqlite:" + db_)->Execute("update GER_VERSAO_ESTRUTURA set VERSAO = '1.00'", {});
  before_ = ReadFile(db_);
  ExpectRefused(Post(Registro(SmallBooksRecord()) + "\n"), 1,
                "kvctb: error: the database has structure version 1.00 and this kvctb works with "
                "version 2.09; nothing was read or written\n");
}

TEST_F(HostileInputTest, FileThatIsNotADatabase) {
  WriteFile(db_, "CONTA;SALDO\n1.1.1.01;10,00\n");
  before_ = ReadFile(db_);
  ExpectRefused(Post(Registro(SmallBooksRecord()) + "\n"), 1,
                "kvctb: error: 'books.db' is not an SQLite database file, or it is damaged: check "
                "the --db path; nothing was read or written\n");
}

TEST_F(HostileInputTest, EmptyFileAsDatabase) {
  WriteFile(db_, "");
  before_ = "";
  const RunResult r = Post(Registro(SmallBooksRecord()) + "\n");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: the database has no accounting schema (create it with: kvctb init)\n");
  EXPECT_EQ(ReadFile(db_), "");
}

TEST_F(HostileInputTest, MissingDatabaseIsNotCreated) {
  fs::remove(db_);
  const RunResult r = Post(Registro(SmallBooksRecord()) + "\n");
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err,
            "kvctb: error: database 'books.db' does not exist (create it with: kvctb init)\n");
  EXPECT_FALSE(FileExists(db_));
}

// Makes a file or directory unwritable for the tool for the guard's
// lifetime. Root writes through permission bits, so as root the immutable
// attribute does it (ext4 and most Linux file systems); otherwise the
// write permission bits are taken away.
class Unwritable {
 public:
  explicit Unwritable(std::string path) : path_(std::move(path)) {
    if (geteuid() == 0) {
      immutable_ = true;
      ok_ = SetImmutable(true);
    } else {
      struct stat st {};
      ok_ = stat(path_.c_str(), &st) == 0;
      mode_ = st.st_mode & 07777;
      ok_ = ok_ && chmod(path_.c_str(), mode_ & ~0222) == 0;
    }
  }
  ~Unwritable() {
    if (!ok_) return;
    if (immutable_)
      SetImmutable(false);
    else
      chmod(path_.c_str(), mode_);
  }
  Unwritable(const Unwritable&) = delete;
  Unwritable& operator=(const Unwritable&) = delete;
  bool ok() const { return ok_; }

 private:
  bool SetImmutable(bool on) {
    const int fd = open(path_.c_str(), O_RDONLY | O_NONBLOCK);
    if (fd < 0) return false;
    int flags = 0;
    bool done = ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (done) {
      flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
      done = ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    close(fd);
    return done;
  }

  std::string path_;
  bool immutable_ = false;
  bool ok_ = false;
  mode_t mode_ = 0;
};

TEST_F(HostileInputTest, ReadOnlyDatabaseFile) {
  RunResult r;
  {
    Unwritable guard(db_);
    ASSERT_TRUE(guard.ok()) << "cannot make " << db_ << " read-only";
    r = Post(Registro(SmallBooksRecord()) + "\n");
  }
  ExpectRefused(r, 1,
                "kvctb: error: sqlite3_statement_backend::loadOne: attempt to write a readonly "
                "database\n"
                "kvctb: the database file is read-only for this user: make it writable, or work "
                "on a writable copy; nothing of this command was written\n");
}

TEST_F(HostileInputTest, ReadOnlyDirectory) {
  WriteFile(dir_ + "/entries.txt", Registro(SmallBooksRecord()) + "\n");
  RunResult r;
  {
    Unwritable guard(dir_);
    ASSERT_TRUE(guard.ok()) << "cannot make " << dir_ << " read-only";
    r = Run({"post", "entries.txt"});
  }
  ExpectRefused(r, 1,
                "kvctb: error: sqlite3_statement_backend::loadOne: unable to open database file\n"
                "kvctb: SQLite could not create its rollback journal beside the database file: "
                "the directory must be writable for this user; nothing of this command was "
                "written\n");
}

TEST_F(HostileInputTest, FullDisk) {
  // A file of 2,000 records outgrows a file-size limit of the database's
  // size plus 8 KiB before its commit.
  std::string text;
  for (int i = 0; i < 2000; ++i) {
    RegistroCampos c = SmallBooksRecord();
    c.centavos = 1000 + i;
    text += Registro(c) + "\n";
  }
  RunOptions options;
  options.file_size_limit = static_cast<long long>(before_.size()) + 8192;
  ExpectRefused(Post(text, options), 1,
                "kvctb: error: the entries could not be committed: Cannot commit transaction. "
                "disk I/O error\n"
                "kvctb: the disk refused a write (full, or over the process's file-size limit): "
                "free some space and run the command again; nothing of this command was "
                "written\n");
}

}  // namespace
}  // namespace kvc::cli::testing
