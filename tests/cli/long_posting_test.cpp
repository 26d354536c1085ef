// kvctb post gives SQLite a larger page cache for the posting's one long
// transaction: with the connection's 8 MiB, a posting of a million records
// spills dirty pages (each spill syncing the journal) and reads evicted ones
// again. The setting must outlast the connection's first-use settings, which
// would put the smaller cache back if they ran after it.
#include <gtest/gtest.h>

#include <string>

#include "cli/kvctb_process.h"
#include "cli/session.h"
#include "support/records.h"
#include "support/test_db.h"

namespace kvc::cli::testing {
namespace {

int64_t CacheSize(Session& session) {
  return kvc::testing::Scalar(session.Connection(), "pragma cache_size").AsInteger();
}

TEST(LongPosting, TheSessionKeepsTheLongWritePageCacheOnSqlite) {
  const std::string dir = DirectoryWithSmallBooks("long_posting_session");
  GlobalOptions options;
  options.db = "sqlite:" + dir + "/books.db";
  options.quiet = true;
  options.Check();
  Session session(options, nullptr);
  EXPECT_EQ(CacheSize(session), -8192) << "the connection's own page cache";
  session.PrepareLongWrite();
  EXPECT_EQ(CacheSize(session), -24576);
  // The statements of a posting that follow do not put the smaller one back.
  session.Connection().Query("select count(*) from CTB_LANCAMENTO", {});
  session.Connection().Execute("delete from CTB_LANCAMENTO where LANCAMENTO < 0", {});
  EXPECT_EQ(CacheSize(session), -24576);
}

TEST(LongPosting, KvctbPostSetsThePageCacheBeforeItsTransaction) {
  const std::string dir = DirectoryWithSmallBooks("long_posting_trace");
  kvc::testing::RegistroCampos campos = SmallBooksRecord();
  campos.centavos = 4242;
  WriteFile(dir + "/records.txt", kvc::testing::Registro(campos) + "\n");
  const RunResult r = RunKvctb(
      {"--db", "sqlite:books.db", "--quiet", "--trace-sql", "trace.jsonl", "post", "records.txt"},
      In(dir));
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const std::string trace = ReadFile(dir + "/trace.jsonl");
  const size_t setting = trace.find("\"pragma cache_size = -24576\"");
  ASSERT_NE(setting, std::string::npos) << trace;
  EXPECT_LT(setting, trace.find("insert into")) << "the setting comes before the posting";
}

}  // namespace
}  // namespace kvc::cli::testing
