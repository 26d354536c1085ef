// The stand-alone general-services library: the structure-version check, the
// database server's clock and numbering from the sequence table GER_NUMERADOR
// (one row per company, dealership, table and key).
#include <stdexcept>

#include "accounting/db/dialect.h"
#include "accounting/db/error.h"
#include "accounting/db/transaction_guard.h"
#include "accounting/services/service_libraries.h"

namespace kvc {
namespace {

constexpr char kLibraryVersion[] = "2.09";

// The key's row. The library's own statements: their texts never change and
// the values are bound, so each is prepared once however many numbers are
// drawn.
constexpr char kUpdateNumerador[] =
    "update GER_NUMERADOR set ULTIMO_NUMERO = ULTIMO_NUMERO + :PASSO"
    " where EMPRESA = :EMPRESA"
    " and REVENDA = :REVENDA"
    " and TABELA = :TABELA"
    " and CHAVE = :CHAVE";
constexpr char kInsertNumerador[] =
    "insert into GER_NUMERADOR (EMPRESA, REVENDA, TABELA, CHAVE, ULTIMO_NUMERO)"
    " values (:EMPRESA, :REVENDA, :TABELA, :CHAVE, :PASSO)";
constexpr char kSelectNumerador[] =
    "select ULTIMO_NUMERO from GER_NUMERADOR"
    " where EMPRESA = :EMPRESA"
    " and REVENDA = :REVENDA"
    " and TABELA = :TABELA"
    " and CHAVE = :CHAVE";

class Geral01 final : public IGeral01 {
 public:
  // Accepts exactly the structure version it was built for.
  bool DLL_InicializaGeral01(const std::string& versao, int32_t) override {
    return versao == kLibraryVersion;
  }
  std::string DLL_VersaoGeral01() override { return kLibraryVersion; }
  void DLL_FinalizaGeral01(int32_t) override { conexao_ = nullptr; }
  void DLL_AtualizaTAplicacaoGeral01(const TAplicacaoLibrary& aplicacao, db::Connection* conexao,
                                     int32_t) override {
    aplicacao_ = aplicacao;
    conexao_ = conexao;
  }

  // The first flag keeps only the date (time 00:00:00); the second keeps the
  // milliseconds when the server reports them. Every caller of the module
  // passes (false, true): the full server time.
  DateTime DLL_DataHoraBD(bool somente_data, bool com_milissegundos, int32_t) override {
    db::Connection& conexao = RequireConnection();
    db::ResultSet rs = conexao.Query(conexao.dialect().ServerTimeQuery(), {});
    if (rs.rows.empty() || rs.rows[0].empty() || rs.rows[0][0].IsNull())
      throw db::DatabaseError("the server did not report its time",
                              conexao.dialect().ServerTimeQuery());
    DateTime now = rs.rows[0][0].AsDateTime();
    if (somente_data) now.hour = now.minute = now.second = now.millisecond = 0;
    if (!com_milissegundos) now.millisecond = 0;
    return now;
  }

  // Numbering on the bound connection: inside its transaction when one is
  // active, otherwise in a transaction of its own. The callback is not used:
  // drawing a number is immediate here.
  int32_t DLL_BuscaProximoNumero(int32_t empresa, int32_t revenda, const std::string& tabela,
                                 const std::string& chave, IProgressCallback*, int32_t passo,
                                 const std::string& tipo_banco, const std::string& valor_numeracao,
                                 int32_t handle) override {
    db::Connection& conexao = RequireConnection();
    if (conexao.InTransaction())
      return DLL_BuscaProximoNumeroTran(conexao, empresa, revenda, tabela, chave, passo, tipo_banco,
                                        valor_numeracao, handle);
    db::TransactionGuard transacao =
        db::TransactionGuard::Over(conexao, db::Isolation::kReadCommitted);
    const int32_t numero = DLL_BuscaProximoNumeroTran(conexao, empresa, revenda, tabela, chave,
                                                      passo, tipo_banco, valor_numeracao, handle);
    (void)transacao.Commit();
    return numero;
  }

  // Raises the last number of the key by `passo` (creating the key at
  // `passo`) and returns it. The update locks the key's row until the
  // caller's transaction ends, which serialises numbering among clients.
  int32_t DLL_BuscaProximoNumeroTran(db::Connection& conexao, int32_t empresa, int32_t revenda,
                                     const std::string& tabela, const std::string& chave,
                                     int32_t passo, const std::string&, const std::string&,
                                     int32_t) override {
    db::BoundParams chave_numerador{
        {"EMPRESA", empresa}, {"REVENDA", revenda}, {"TABELA", tabela}, {"CHAVE", chave}};
    db::BoundParams com_passo = chave_numerador;
    com_passo.push_back({"PASSO", passo});
    if (conexao.Execute(kUpdateNumerador, com_passo) == 0)
      conexao.Execute(kInsertNumerador, com_passo);
    db::ResultSet rs = conexao.Query(kSelectNumerador, chave_numerador);
    if (rs.rows.empty())
      throw db::DatabaseError("no number for " + tabela + "/" + chave, kSelectNumerador);
    return static_cast<int32_t>(rs.rows[0][0].AsInteger());
  }

 private:
  db::Connection& RequireConnection() {
    if (!conexao_) throw db::DatabaseError("general services: no connection", "");
    return *conexao_;
  }

  TAplicacaoLibrary aplicacao_;
  db::Connection* conexao_ = nullptr;
};

}  // namespace

std::unique_ptr<IGeral01> NewGeral01() { return std::make_unique<Geral01>(); }

}  // namespace kvc
