// The module's error log: kept by the roll-up and the annual closing, which
// record a failed write and go on.
#include "accounting/module/log_erros.h"

#include "accounting/db/error.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {

db::ClientDataSet& TddmContabilidadeBD::LogErrosGarantido() {
  // The annual closing creates the log; a direct call from the host that
  // finds none gets a new empty one here rather than failing.
  if (!log_erros_) {
    log_erros_ = std::make_unique<db::ClientDataSet>("cdsErros");
    log_erros_->DefineFields(DefinicaoLogErros());
  }
  return *log_erros_;
}

void TddmContabilidadeBD::RegistraErro(const std::string& mensagem, const std::exception& erro) {
  db::ClientDataSet& log = LogErrosGarantido();
  const DateTime agora = DataHoraBD(false, true);
  const auto* erro_servidor = dynamic_cast<const db::DatabaseError*>(&erro);
  log.Append();
  log.SetFieldValue(kErroData, agora);
  log.SetFieldValue(kErroMensagem, mensagem);
  log.SetFieldValue(kErroSql, sdsAux.CommandText());
  log.SetFieldValue(kErroServidor,
                    erro_servidor ? erro_servidor->ServerMessage() : std::string(erro.what()));
  log.Post();
}

// Runs `sql` on sdsAux; a failure is logged with `mensagem` and swallowed.
void TddmContabilidadeBD::ExecutaRegistrando(const std::string& sql, const char* mensagem) {
  try {
    sdsAux.Close();
    sdsAux.SetCommandText(sql);
    sdsAux.ExecSQL();
  } catch (const std::exception& erro) {
    RegistraErro(mensagem, erro);
  }
}

}  // namespace kvc
