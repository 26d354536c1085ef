// The two service libraries of the suite that the module calls: general
// services (server time, numbering) and accounting integration (summarised
// balances). Each is an interface with the library's operations; the module
// ships a stand-alone implementation of each over the shared database, and a
// host may supply its own.
#ifndef KVC_SERVICES_SERVICE_LIBRARIES_H_
#define KVC_SERVICES_SERVICE_LIBRARIES_H_

#include <cstdint>
#include <memory>
#include <string>

#include "accounting/db/api.h"
#include "accounting/db/connection.h"
#include "accounting/db/value.h"
#include "accounting/services/aplicacao.h"
#include "accounting/services/progress.h"

namespace kvc {

// The database-structure version that this module requires and that its
// libraries support.
inline constexpr char kVersaoEstrutura[] = "2.09";

class KVC_API IGeral01 {
 public:
  virtual ~IGeral01() = default;
  // False when the library does not accept the required structure version.
  virtual bool DLL_InicializaGeral01(const std::string& versao, int32_t handle) = 0;
  virtual std::string DLL_VersaoGeral01() = 0;
  virtual void DLL_FinalizaGeral01(int32_t handle) = 0;
  virtual void DLL_AtualizaTAplicacaoGeral01(const TAplicacaoLibrary& aplicacao,
                                             db::Connection* conexao, int32_t handle) = 0;
  virtual DateTime DLL_DataHoraBD(bool somente_data, bool com_hora, int32_t handle) = 0;
  virtual int32_t DLL_BuscaProximoNumero(int32_t empresa, int32_t revenda,
                                         const std::string& tabela, const std::string& chave,
                                         IProgressCallback* callback, int32_t passo,
                                         const std::string& tipo_banco,
                                         const std::string& valor_numeracao, int32_t handle) = 0;
  virtual int32_t DLL_BuscaProximoNumeroTran(db::Connection& conexao, int32_t empresa,
                                             int32_t revenda, const std::string& tabela,
                                             const std::string& chave, int32_t passo,
                                             const std::string& tipo_banco,
                                             const std::string& valor_numeracao,
                                             int32_t handle) = 0;
};

class KVC_API IIntegracaoContabil01 {
 public:
  virtual ~IIntegracaoContabil01() = default;
  virtual bool DLL_InicializaIntegracaoContabil01(db::Connection* conexao,
                                                  const std::string& versao, int32_t handle) = 0;
  virtual std::string DLL_VersaoIntegracaoContabil01() = 0;
  virtual void DLL_FinalizaIntegracaoContabil01(int32_t handle) = 0;
  virtual void DLL_AtualizaTAplicacaoIntegracaoContabil01(const TAplicacaoLibrary& aplicacao,
                                                          db::Connection* conexao,
                                                          int32_t handle) = 0;
  virtual bool DLL_AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& texto1,
                                           const std::string& texto2, const std::string& texto3,
                                           const std::string& texto4, const std::string& texto5,
                                           const std::string& texto6, int32_t inteiro1,
                                           int32_t inteiro2, int32_t inteiro3, int32_t inteiro4,
                                           int32_t inteiro5, int32_t inteiro6, int32_t inteiro7,
                                           int32_t inteiro8, double valor, int32_t handle) = 0;
};

// The stand-alone libraries over the shared database.
KVC_API std::unique_ptr<IGeral01> NewGeral01();
KVC_API std::unique_ptr<IIntegracaoContabil01> NewIntegracaoContabil01();

}  // namespace kvc

#endif  // KVC_SERVICES_SERVICE_LIBRARIES_H_
