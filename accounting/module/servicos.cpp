// The data module's wrappers of the service libraries: server time,
// numbering and summarised balances. Each hands the library the current
// application context first; none catches anything.
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {

DateTime TddmContabilidadeBD::DataHoraBD(bool primeiro, bool segundo) {
  geral_->DLL_AtualizaTAplicacaoGeral01(*aplicacao_, conexao_, handle_aplicacao_);
  return geral_->DLL_DataHoraBD(primeiro, segundo, handle_aplicacao_);
}

int32_t TddmContabilidadeBD::BuscaProximoNumero(int32_t empresa, int32_t revenda,
                                                const std::string& tabela, const std::string& chave,
                                                IProgressCallback* callback, int32_t passo) {
  geral_->DLL_AtualizaTAplicacaoGeral01(*aplicacao_, conexao_, handle_aplicacao_);
  return geral_->DLL_BuscaProximoNumero(empresa, revenda, tabela, chave, callback, passo,
                                        aplicacao_->TipoBanco, aplicacao_->ValorNumeracao,
                                        handle_aplicacao_);
}

// The connection given, not Conexao, is handed to the library.
int32_t TddmContabilidadeBD::BuscaProximoNumeroTran(db::Connection& conexao, int32_t empresa,
                                                    int32_t revenda, const std::string& tabela,
                                                    const std::string& chave, int32_t passo) {
  geral_->DLL_AtualizaTAplicacaoGeral01(*aplicacao_, &conexao, handle_aplicacao_);
  return geral_->DLL_BuscaProximoNumeroTran(conexao, empresa, revenda, tabela, chave, passo,
                                            aplicacao_->TipoBanco, aplicacao_->ValorNumeracao,
                                            handle_aplicacao_);
}

bool TddmContabilidadeBD::AtualizaSaldoSumarizado(
    db::Connection& conexao, const std::string& texto1, const std::string& texto2,
    const std::string& texto3, const std::string& texto4, const std::string& texto5,
    const std::string& texto6, int32_t inteiro1, int32_t inteiro2, int32_t inteiro3,
    int32_t inteiro4, int32_t inteiro5, int32_t inteiro6, int32_t inteiro7, int32_t inteiro8,
    double valor) {
  integracao_->DLL_AtualizaTAplicacaoIntegracaoContabil01(*aplicacao_, &conexao, handle_aplicacao_);
  return integracao_->DLL_AtualizaSaldoSumarizado(
      conexao, texto1, texto2, texto3, texto4, texto5, texto6, inteiro1, inteiro2, inteiro3,
      inteiro4, inteiro5, inteiro6, inteiro7, inteiro8, valor, handle_aplicacao_);
}

}  // namespace kvc
