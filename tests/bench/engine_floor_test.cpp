// engine_floor, the benchmarks' measure of SQLite alone, as a whole process:
// the statements of a kvctb run, replayed on a copy of the database that run
// started from, must leave the very books kvctb left (every statement run,
// each literal and parameter bound where it stood), and a statement SQLite
// refuses is counted, not hidden.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>

#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "support/records.h"
#include "support/test_db.h"

namespace kvc::cli::testing {
namespace {

RunResult RunEngineFloor(const std::string& dir, const std::string& database,
                         const std::string& trace) {
  return RunProgram(ENGINE_FLOOR_PATH, {database, trace}, In(dir));
}

kvc::testing::TabelasDoBanco Books(const std::string& path) {
  auto connection = db::Connect("sqlite:" + path);
  return kvc::testing::TodasAsTabelas(*connection);
}

// Records of June 2024 on the small chart: amounts with every kind of cents,
// both sides, a history with a quote.
std::string SomeRecords() {
  std::string records;
  for (int i = 0; i < 12; ++i) {
    kvc::testing::RegistroCampos campos = SmallBooksRecord();
    campos.centavos = 1 + i * 100'007;
    campos.dia = std::to_string(10 + i);
    campos.conta2 = i % 2 ? "5.1.1.01" : "3.1.1.01";
    campos.historico = i == 3 ? "D'AVILA" : "VENDA " + std::to_string(i);
    records += kvc::testing::Registro(campos) + "\n";
  }
  return records;
}

TEST(EngineFloor, APostingsStatementsReplayedLeaveTheBooksKvctbLeft) {
  const std::string dir = DirectoryWithSmallBooks("engine_floor_post");
  std::filesystem::copy_file(dir + "/books.db", dir + "/engine.db");
  WriteFile(dir + "/records.txt", SomeRecords());
  const RunResult post = RunKvctb(
      {"--db", "sqlite:books.db", "--quiet", "--trace-sql", "trace.jsonl", "post", "records.txt"},
      In(dir));
  ASSERT_EQ(post.exit_code, 0) << post.err;
  ASSERT_NE(Books(dir + "/books.db"), Books(dir + "/engine.db")) << "the posting wrote nothing";

  const RunResult floor = RunEngineFloor(dir, "engine.db", "trace.jsonl");
  ASSERT_EQ(floor.exit_code, 0) << floor.err;
  std::smatch line;
  ASSERT_TRUE(std::regex_search(
      floor.out, line,
      std::regex(
          R"(^statements (\d+) failed 0 execution [0-9.]+ prepare [0-9.]+ commit [0-9.]+ skipped 0\n)")))
      << floor.out;
  const std::string trace = ReadFile(dir + "/trace.jsonl");
  EXPECT_EQ(std::stol(line[1]), std::count(trace.begin(), trace.end(), '\n'));
  EXPECT_EQ(Books(dir + "/books.db"), Books(dir + "/engine.db"));
}

// A literal and a parameter reach SQLite with the type the connection gives
// them: an amount written with decimals or bound as a double is a real, a
// whole number an integer, a quoted text a text.
TEST(EngineFloor, LiteralsAndParametersAreBoundWithTheConnectionsTypes) {
  const std::string dir = DirectoryWithSmallBooks("engine_floor_types");
  WriteFile(
      dir + "/trace.jsonl",
      R"j({"params":{"v":1.5,"I":7,"T":"x"},"sql":"insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) select 1, 1, typeof(:V) || typeof(:I) || typeof(:T), 'A'"})j"
      "\n"
      R"j({"params":{},"sql":"insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) select 1, 1, 'literals', 'A' where typeof(2.5) = 'real' and typeof(3) = 'integer' and typeof('t') = 'text'"})j"
      "\n");
  const RunResult floor = RunEngineFloor(dir, "books.db", "trace.jsonl");
  ASSERT_EQ(floor.exit_code, 0) << floor.err;
  auto connection = db::Connect("sqlite:" + dir + "/books.db");
  EXPECT_EQ(kvc::testing::CountRows(*connection, "CTB_CONTA where CONTA = 'realintegertext'"), 1)
      << "a parameter found whatever its case, bound with its JSON type";
  EXPECT_EQ(kvc::testing::CountRows(*connection, "CTB_CONTA where CONTA = 'literals'"), 1)
      << "the literals taken out of the text, bound with their own types";
}

TEST(EngineFloor, AStatementSQLiteRefusesIsCountedAndTheRestRuns) {
  const std::string dir = DirectoryWithSmallBooks("engine_floor_failed");
  WriteFile(
      dir + "/trace.jsonl",
      R"j({"params":{},"sql":"select SALDO from NO_SUCH_TABLE"})j"
      "\n"
      R"j({"params":{},"sql":"insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) values (1, 1, '1.1.1.01', 'A')"})j"
      "\n"
      R"j({"params":{"CONTA":"9.9"},"sql":"insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) values (1, 1, :CONTA, 'A')"})j"
      "\n");
  const RunResult floor = RunEngineFloor(dir, "books.db", "trace.jsonl");
  EXPECT_EQ(floor.exit_code, 1);
  EXPECT_NE(floor.out.find("statements 3 failed 2 "), std::string::npos) << floor.out;
  EXPECT_NE(floor.err.find("NO_SUCH_TABLE"), std::string::npos) << floor.err;
  EXPECT_NE(floor.err.find("UNIQUE"), std::string::npos) << "the account is there: " << floor.err;
  auto connection = db::Connect("sqlite:" + dir + "/books.db");
  EXPECT_EQ(kvc::testing::Scalar(*connection, "select NIVEL from CTB_CONTA where CONTA = '9.9'")
                .AsString(),
            "A");
}

// kvctb went on without the effects of a statement that failed in its run:
// the replay does not run it.
TEST(EngineFloor, AStatementTheTraceMarksFailedIsSkipped) {
  const std::string dir = DirectoryWithSmallBooks("engine_floor_skipped");
  WriteFile(
      dir + "/trace.jsonl",
      R"j({"failed":true,"params":{},"sql":"insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) values (1, 1, '9.8', 'A')"})j"
      "\n");
  const RunResult floor = RunEngineFloor(dir, "books.db", "trace.jsonl");
  EXPECT_EQ(floor.exit_code, 0) << floor.err;
  EXPECT_NE(floor.out.find("statements 1 failed 0 "), std::string::npos) << floor.out;
  EXPECT_NE(floor.out.find(" skipped 1\n"), std::string::npos) << floor.out;
  auto connection = db::Connect("sqlite:" + dir + "/books.db");
  EXPECT_EQ(kvc::testing::CountRows(*connection, "CTB_CONTA where CONTA = '9.8'"), 0);
}

TEST(EngineFloor, ALineThatIsNoTracedStatementIsRefusedWithItsNumberAndNothingCommitted) {
  const std::string dir = DirectoryWithSmallBooks("engine_floor_bad_line");
  WriteFile(
      dir + "/trace.jsonl",
      R"j({"params":{},"sql":"insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) values (1, 1, '9.7', 'A')"})j"
      "\n"
      "not json\n");
  const RunResult floor = RunEngineFloor(dir, "books.db", "trace.jsonl");
  EXPECT_EQ(floor.exit_code, 2);
  EXPECT_NE(floor.err.find("trace.jsonl line 2: not a traced statement; nothing committed"),
            std::string::npos)
      << floor.err;
  auto connection = db::Connect("sqlite:" + dir + "/books.db");
  EXPECT_EQ(kvc::testing::CountRows(*connection, "CTB_CONTA where CONTA = '9.7'"), 0);
}

}  // namespace
}  // namespace kvc::cli::testing
