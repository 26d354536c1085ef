// Regression: a commit that the server refused was never rolled back there.
// The connection forgot its transaction before asking the server to commit,
// so the rollback that follows a failed commit stopped at "no transaction is
// active" and the server's transaction stayed open: on SQLite the next begin
// failed, on Firebird the next begin (or any statement outside a
// transaction) committed the work whose commit had failed. The injected
// commit failure of the statement trace hid it by rolling back itself.
//
// Here each server really refuses the commit: a deferred foreign key checked
// at commit (SQLite, PostgreSQL) or a commit trigger that raises (Firebird).
#include <gtest/gtest.h>

#include "accounting/db/error.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr char kInsertCentro[] =
    "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO) values (1, "
    "1, 10, 'Oficina')";

// A row in KVC_VETO makes the commit of the transaction that wrote it fail.
class CommitRecusadoTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    if (!raw_) return;
    Remove();
    if (Firebird()) {
      raw_->Execute("create exception KVC_VETO_E 'commit vetoed'", {});
      raw_->Execute("create table KVC_VETO (ID integer)", {});
      raw_->Execute(
          "create trigger KVC_VETO_T on transaction commit as begin if (exists(select 1 from "
          "KVC_VETO)) then exception KVC_VETO_E; end",
          {});
    } else {
      if (Sqlite()) raw_->Execute("pragma foreign_keys = on", {});
      raw_->Execute("create table KVC_VETO_PAI (ID integer primary key)", {});
      raw_->Execute(
          "create table KVC_VETO (ID integer, PAI integer references KVC_VETO_PAI (ID) "
          "deferrable initially deferred)",
          {});
    }
  }

  void TearDown() override {
    if (raw_) {
      if (dm_ && dm_->TransacaoAtiva()) (void)dm_->RollbackTransacao();
      Remove();
    }
    ModuleTest::TearDown();
  }

  bool Firebird() const { return GetParam() == "firebird"; }
  bool Sqlite() const { return GetParam() == "sqlite" || GetParam() == "sqlserver"; }

  // Writes the row that the server will refuse at commit.
  void Veto() {
    trace_->Execute(Firebird() ? "insert into KVC_VETO (ID) values (1)"
                               : "insert into KVC_VETO (ID, PAI) values (1, 99)",
                    {});
  }

  void Remove() {
    const std::vector<std::string> drops =
        Firebird() ? std::vector<std::string>{"drop trigger KVC_VETO_T", "drop table KVC_VETO",
                                              "drop exception KVC_VETO_E"}
                   : std::vector<std::string>{"drop table KVC_VETO", "drop table KVC_VETO_PAI"};
    for (const std::string& drop : drops) {
      try {
        raw_->Execute(drop, {});
      } catch (const db::DatabaseError&) {
        // Not there yet.
      }
    }
  }
};

TEST_P(CommitRecusadoTest, RefusedCommitLeavesNothingBehindAndTheNextTransactionWorks) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->sdsExecutaSQL.SetCommandText(kInsertCentro);
  dm_->sdsExecutaSQL.ExecSQL();
  Veto();
  trace_->Clear();

  EXPECT_FALSE(dm_->ComitaTransacao());

  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_FALSE(raw_->InTransaction());
  // The refused commit is followed by a rollback that reached the server.
  std::vector<std::string> passos;
  for (const auto& t : trace_->Trace())
    passos.push_back(t.kind == db::TracedStatement::Kind::kCommit     ? "commit"
                     : t.kind == db::TracedStatement::Kind::kRollback ? "rollback"
                                                                      : "statement");
  EXPECT_EQ(passos, (std::vector<std::string>{"commit", "rollback"}));
  if (!trace_->Trace().empty()) {
    EXPECT_TRUE(trace_->Trace()[0].failed);
    EXPECT_FALSE(trace_->Trace()[0].injected);
  }
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 0);
  EXPECT_EQ(CountRows(*raw_, "KVC_VETO"), 0);

  // The connection is whole again: a new transaction commits.
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->sdsExecutaSQL.SetCommandText(kInsertCentro);
  dm_->sdsExecutaSQL.ExecSQL();
  EXPECT_TRUE(dm_->ComitaTransacao());
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 1);
}

// The statement trace's commit fault behaves as a server does: the
// transaction stays open, with its work pending, until someone rolls it
// back.
TEST_P(CommitRecusadoTest, InjectedCommitFailureLeavesTheTransactionOpenUntilRolledBack) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->sdsExecutaSQL.SetCommandText(kInsertCentro);
  dm_->sdsExecutaSQL.ExecSQL();
  trace_->FailCommit(true);
  EXPECT_THROW(trace_->Commit(), db::DatabaseError);
  trace_->FailCommit(false);
  EXPECT_TRUE(raw_->InTransaction());
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 1) << "the work is still pending";
  EXPECT_TRUE(dm_->RollbackTransacao());
  EXPECT_FALSE(raw_->InTransaction());
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 0);
}

KVC_INSTANTIATE_BACKENDS(CommitRecusadoTest);

}  // namespace
}  // namespace kvc::testing
