// The database session of the data module: binding the command datasets to
// the host's connection and the three transaction operations, which report
// failure by their result and never raise.
#include "accounting/db/error.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {

void TddmContabilidadeBD::SetaSQLConnection() {
  for (db::SQLDataSet* ds : command_datasets_) ds->SetConnection(conexao_);
}

void TddmContabilidadeBD::LimpaSQLConnection() {
  for (db::SQLDataSet* ds : command_datasets_) ds->SetConnection(nullptr);
}

// Begins another transaction whatever the state of Transacao: transactions are
// not nested or counted. A connection that refuses (none bound, one already
// active on it) makes the result false.
bool TddmContabilidadeBD::IniciaTransacao() {
  try {
    if (!conexao_) throw db::DatabaseError("no connection", "begin");
    conexao_->Begin(db::Isolation::kReadCommitted);
    transacao_ = db::Isolation::kReadCommitted;
    return true;
  } catch (...) {
    return false;
  }
}

// Without an active transaction the connection refuses the commit, and the
// result is false; Transacao is none afterwards in every case.
bool TddmContabilidadeBD::ComitaTransacao() {
  try {
    transacao_.reset();
    if (!conexao_) throw db::DatabaseError("no connection", "commit");
    conexao_->Commit();
    return true;
  } catch (...) {
    (void)RollbackTransacao();
    return false;
  }
}

bool TddmContabilidadeBD::RollbackTransacao() {
  try {
    transacao_.reset();
    if (!conexao_) throw db::DatabaseError("no connection", "rollback");
    conexao_->Rollback();
    return true;
  } catch (...) {
    return false;
  }
}

db::TransactionGuard TddmContabilidadeBD::NovaTransacao(
    db::TransactionGuard::WhenBeginFails when_begin_fails) {
  return db::TransactionGuard([this] { return IniciaTransacao(); },
                              [this] { return ComitaTransacao(); },
                              [this] { return RollbackTransacao(); }, when_begin_fails);
}

}  // namespace kvc
