// The transaction operations of the data module on each database: they never
// raise, and a rolled-back transaction leaves no row behind.
#include <gtest/gtest.h>

#include "support/test_db.h"

namespace kvc::testing {
namespace {

using TransactionTest = ModuleTest;

constexpr char kInsertCentro[] =
    "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO) values (1, "
    "1, 10, 'Oficina')";

TEST_P(TransactionTest, RolledBackTransactionLeavesNoRow) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_TRUE(dm_->TransacaoAtiva());
  dm_->sdsExecutaSQL.SetCommandText(kInsertCentro);
  dm_->sdsExecutaSQL.ExecSQL();
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 1) << "visible inside the transaction";
  ASSERT_TRUE(dm_->RollbackTransacao());
  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 0);
}

TEST_P(TransactionTest, CommittedTransactionKeepsItsRows) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->sdsExecutaSQL.SetCommandText(kInsertCentro);
  dm_->sdsExecutaSQL.ExecSQL();
  ASSERT_TRUE(dm_->ComitaTransacao());
  EXPECT_FALSE(dm_->TransacaoAtiva());
  auto other = raw_.get();
  EXPECT_EQ(CountRows(*other, "CTB_CENTRO_CUSTO"), 1);
}

TEST_P(TransactionTest, CommitWithoutTransactionReturnsFalseAndLeavesNone) {
  Bind();
  EXPECT_FALSE(dm_->ComitaTransacao());
  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_FALSE(dm_->RollbackTransacao());
}

TEST_P(TransactionTest, FailedCommitRollsBackAndReturnsFalse) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->sdsExecutaSQL.SetCommandText(kInsertCentro);
  dm_->sdsExecutaSQL.ExecSQL();
  trace_->FailCommit(true);
  EXPECT_FALSE(dm_->ComitaTransacao());
  trace_->FailCommit(false);
  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_FALSE(raw_->InTransaction());
  EXPECT_EQ(CountRows(*raw_, "CTB_CENTRO_CUSTO"), 0);
}

// Read committed: a statement inside the transaction sees what another
// connection committed after the transaction began (a snapshot would not).
// SQLite has no such isolation: its transactions are serialisable.
TEST_P(TransactionTest, TransactionReadsWhatAnotherConnectionCommittedMeanwhile) {
  if (GetParam() == "sqlite" || GetParam() == "sqlserver")
    GTEST_SKIP() << "SQLite transactions are serialisable";
  Bind();
  auto outra = OpenTestDatabase(GetParam());
  ASSERT_TRUE(outra);
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_EQ(CountRows(*trace_, "CTB_CENTRO_CUSTO"), 0);
  outra->Execute(kInsertCentro, {});
  EXPECT_EQ(CountRows(*trace_, "CTB_CENTRO_CUSTO"), 1);
  EXPECT_TRUE(dm_->RollbackTransacao());
}

TEST_P(TransactionTest, BeginWithoutConnectionReturnsFalse) {
  TddmContabilidadeBD dm;
  EXPECT_FALSE(dm.IniciaTransacao());
  EXPECT_FALSE(dm.TransacaoAtiva());
}

TEST_P(TransactionTest, SecondBeginOnActiveConnectionReturnsFalse) {
  Bind();
  ASSERT_TRUE(dm_->IniciaTransacao());
  EXPECT_FALSE(dm_->IniciaTransacao());
  EXPECT_TRUE(dm_->RollbackTransacao());
}

TEST_P(TransactionTest, DatasetsFollowSetaAndLimpaSQLConnection) {
  Bind();
  for (auto* ds : dm_->CommandDataSets()) EXPECT_EQ(ds->GetConnection(), trace_.get());
  dm_->LimpaSQLConnection();
  for (auto* ds : dm_->CommandDataSets()) EXPECT_EQ(ds->GetConnection(), nullptr);
  dm_->sdsAux.SetCommandText("select 1 X");
  EXPECT_THROW(dm_->sdsAux.Open(), std::exception);
}

KVC_INSTANTIATE_BACKENDS(TransactionTest);

}  // namespace
}  // namespace kvc::testing
