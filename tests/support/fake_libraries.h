// Service libraries that record their calls and answer as told, for the
// lifecycle tests of the data module.
#ifndef KVC_TESTS_SUPPORT_FAKE_LIBRARIES_H_
#define KVC_TESTS_SUPPORT_FAKE_LIBRARIES_H_

#include <memory>
#include <string>
#include <vector>

#include "accounting/services/service_libraries.h"

namespace kvc::testing {

// Shared record of the calls made to both fakes, in order.
struct LibraryCalls {
  std::vector<std::string> calls;
  bool geral_accepts = true;
  bool integracao_accepts = true;
  db::Connection* last_connection = nullptr;
  int32_t last_handle = 0;
};

class FakeGeral01 : public IGeral01 {
 public:
  explicit FakeGeral01(LibraryCalls& log) : log_(log) {}
  bool DLL_InicializaGeral01(const std::string& versao, int32_t handle) override {
    log_.calls.push_back("InicializaGeral01(" + versao + ")");
    log_.last_handle = handle;
    return log_.geral_accepts;
  }
  std::string DLL_VersaoGeral01() override { return "1.50"; }
  void DLL_FinalizaGeral01(int32_t handle) override {
    log_.calls.push_back("FinalizaGeral01");
    log_.last_handle = handle;
  }
  void DLL_AtualizaTAplicacaoGeral01(const TAplicacaoLibrary&, db::Connection* c,
                                     int32_t) override {
    log_.calls.push_back("AtualizaTAplicacaoGeral01");
    log_.last_connection = c;
  }
  DateTime DLL_DataHoraBD(bool, bool, int32_t) override { return DateTime{2024, 5, 6, 7, 8, 9, 0}; }
  int32_t DLL_BuscaProximoNumero(int32_t, int32_t, const std::string&, const std::string&,
                                 IProgressCallback*, int32_t, const std::string&,
                                 const std::string&, int32_t) override {
    return ++number_;
  }
  int32_t DLL_BuscaProximoNumeroTran(db::Connection& c, int32_t, int32_t, const std::string&,
                                     const std::string& chave, int32_t, const std::string&,
                                     const std::string&, int32_t) override {
    log_.calls.push_back("BuscaProximoNumeroTran(" + chave + ")");
    log_.last_connection = &c;
    return ++number_;
  }

 private:
  LibraryCalls& log_;
  int32_t number_ = 0;
};

class FakeIntegracao01 : public IIntegracaoContabil01 {
 public:
  explicit FakeIntegracao01(LibraryCalls& log) : log_(log) {}
  bool DLL_InicializaIntegracaoContabil01(db::Connection* c, const std::string& versao,
                                          int32_t) override {
    log_.calls.push_back("InicializaIntegracaoContabil01(" + versao + ")");
    log_.last_connection = c;
    return log_.integracao_accepts;
  }
  std::string DLL_VersaoIntegracaoContabil01() override { return "3.00"; }
  void DLL_FinalizaIntegracaoContabil01(int32_t) override {
    log_.calls.push_back("FinalizaIntegracaoContabil01");
  }
  void DLL_AtualizaTAplicacaoIntegracaoContabil01(const TAplicacaoLibrary&, db::Connection*,
                                                  int32_t) override {
    log_.calls.push_back("AtualizaTAplicacaoIntegracaoContabil01");
  }
  bool DLL_AtualizaSaldoSumarizado(db::Connection&, const std::string& t1, const std::string& t2,
                                   const std::string& t3, const std::string& t4,
                                   const std::string& t5, const std::string& t6, int32_t i1,
                                   int32_t i2, int32_t i3, int32_t i4, int32_t i5, int32_t i6,
                                   int32_t i7, int32_t i8, double v, int32_t) override {
    log_.calls.push_back("AtualizaSaldoSumarizado(" + t1 + "," + t2 + "," + t3 + "," + t4 + "," +
                         t5 + "," + t6 + "," + std::to_string(i1) + "," + std::to_string(i2) + "," +
                         std::to_string(i3) + "," + std::to_string(i4) + "," + std::to_string(i5) +
                         "," + std::to_string(i6) + "," + std::to_string(i7) + "," +
                         std::to_string(i8) + "," + std::to_string(v) + ")");
    return true;
  }

 private:
  LibraryCalls& log_;
};

// The module's own libraries behind an interface whose operations can be
// overridden one by one: every operation not overridden reaches `real_`.
class ForwardingGeral01 : public IGeral01 {
 public:
  ForwardingGeral01() : real_(NewGeral01()) {}
  bool DLL_InicializaGeral01(const std::string& versao, int32_t handle) override {
    return real_->DLL_InicializaGeral01(versao, handle);
  }
  std::string DLL_VersaoGeral01() override { return real_->DLL_VersaoGeral01(); }
  void DLL_FinalizaGeral01(int32_t handle) override { real_->DLL_FinalizaGeral01(handle); }
  void DLL_AtualizaTAplicacaoGeral01(const TAplicacaoLibrary& aplicacao, db::Connection* conexao,
                                     int32_t handle) override {
    real_->DLL_AtualizaTAplicacaoGeral01(aplicacao, conexao, handle);
  }
  DateTime DLL_DataHoraBD(bool primeiro, bool segundo, int32_t handle) override {
    return real_->DLL_DataHoraBD(primeiro, segundo, handle);
  }
  int32_t DLL_BuscaProximoNumero(int32_t empresa, int32_t revenda, const std::string& tabela,
                                 const std::string& chave, IProgressCallback* callback,
                                 int32_t passo, const std::string& tipo_banco,
                                 const std::string& valor_numeracao, int32_t handle) override {
    return real_->DLL_BuscaProximoNumero(empresa, revenda, tabela, chave, callback, passo,
                                         tipo_banco, valor_numeracao, handle);
  }
  int32_t DLL_BuscaProximoNumeroTran(db::Connection& conexao, int32_t empresa, int32_t revenda,
                                     const std::string& tabela, const std::string& chave,
                                     int32_t passo, const std::string& tipo_banco,
                                     const std::string& valor_numeracao, int32_t handle) override {
    return real_->DLL_BuscaProximoNumeroTran(conexao, empresa, revenda, tabela, chave, passo,
                                             tipo_banco, valor_numeracao, handle);
  }

 protected:
  std::unique_ptr<IGeral01> real_;
};

class ForwardingIntegracao01 : public IIntegracaoContabil01 {
 public:
  ForwardingIntegracao01() : real_(NewIntegracaoContabil01()) {}
  bool DLL_InicializaIntegracaoContabil01(db::Connection* conexao, const std::string& versao,
                                          int32_t handle) override {
    return real_->DLL_InicializaIntegracaoContabil01(conexao, versao, handle);
  }
  std::string DLL_VersaoIntegracaoContabil01() override {
    return real_->DLL_VersaoIntegracaoContabil01();
  }
  void DLL_FinalizaIntegracaoContabil01(int32_t handle) override {
    real_->DLL_FinalizaIntegracaoContabil01(handle);
  }
  void DLL_AtualizaTAplicacaoIntegracaoContabil01(const TAplicacaoLibrary& aplicacao,
                                                  db::Connection* conexao,
                                                  int32_t handle) override {
    real_->DLL_AtualizaTAplicacaoIntegracaoContabil01(aplicacao, conexao, handle);
  }
  bool DLL_AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& t1,
                                   const std::string& t2, const std::string& t3,
                                   const std::string& t4, const std::string& t5,
                                   const std::string& t6, int32_t i1, int32_t i2, int32_t i3,
                                   int32_t i4, int32_t i5, int32_t i6, int32_t i7, int32_t i8,
                                   double valor, int32_t handle) override {
    return real_->DLL_AtualizaSaldoSumarizado(conexao, t1, t2, t3, t4, t5, t6, i1, i2, i3, i4, i5,
                                              i6, i7, i8, valor, handle);
  }

 protected:
  std::unique_ptr<IIntegracaoContabil01> real_;
};

}  // namespace kvc::testing

#endif  // KVC_TESTS_SUPPORT_FAKE_LIBRARIES_H_
