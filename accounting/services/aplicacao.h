// The application context that the host hands to the module: the host's own
// interface (properties, message box, terminate request) and the module's
// copy of its properties, TAplicacaoLibrary.
#ifndef KVC_SERVICES_APLICACAO_H_
#define KVC_SERVICES_APLICACAO_H_

#include <cstdint>
#include <string>

#include "accounting/db/api.h"

namespace kvc {

// Kinds and buttons of the suite's message box.
enum class TMsgDlgType { mtWarning, mtError, mtInformation, mtConfirmation, mtCustom };
enum class TMsgDlgButton { mbOK, mbYesNo, mbOKCancel };

// What the host supplies when it binds the module (the owner component of
// AtualizaTAplicacao). The module reads the properties, shows messages and
// asks for termination only through this interface: it never writes to a
// terminal or exits the process by itself.
class KVC_API THostContext {
 public:
  virtual ~THostContext() = default;

  // Server-type name ("SQLSERVER", "ORACLE", "FIREBIRD", "POSTGRESQL",
  // "SQLITE").
  virtual std::string TipoBanco() const = 0;
  // The dealership the host application is working in.
  virtual int32_t RevendaAplicacao() const = 0;
  // The current user's code.
  virtual int32_t CodigoUsuario() const = 0;
  // A value passed through unchanged to numbering.
  virtual std::string ValorNumeracao() const = 0;
  // The current company and dealership.
  virtual int32_t Empresa() const = 0;
  virtual int32_t Revenda() const = 0;

  // The suite's message box; returns the button pressed (0 for OK).
  virtual int32_t MessageDlgZOR(const std::string& message, TMsgDlgType type, TMsgDlgButton buttons,
                                int32_t help_context) = 0;
  // The platform's application-terminate request.
  virtual void RequestTerminate() = 0;
};

// A host context with plain fields, for hosts that have no richer one (the
// command-line tool, tests). Messages and terminate requests are recorded.
class KVC_API TSimpleHostContext : public THostContext {
 public:
  std::string tipo_banco = "SQLITE";
  int32_t revenda_aplicacao = 1;
  int32_t codigo_usuario = 1;
  std::string valor_numeracao;
  int32_t empresa = 1;
  int32_t revenda = 1;
  std::string last_message;
  int32_t messages_shown = 0;
  bool terminate_requested = false;

  std::string TipoBanco() const override { return tipo_banco; }
  int32_t RevendaAplicacao() const override { return revenda_aplicacao; }
  int32_t CodigoUsuario() const override { return codigo_usuario; }
  std::string ValorNumeracao() const override { return valor_numeracao; }
  int32_t Empresa() const override { return empresa; }
  int32_t Revenda() const override { return revenda; }
  int32_t MessageDlgZOR(const std::string& message, TMsgDlgType, TMsgDlgButton, int32_t) override {
    last_message = message;
    ++messages_shown;
    return 0;
  }
  void RequestTerminate() override { terminate_requested = true; }
};

// The module's application-properties object: the values read from the host
// by AtualizaPropriedades. Fields are public and may also be set directly by a
// host that has no THostContext of its own.
class KVC_API TAplicacaoLibrary {
 public:
  std::string TipoBanco;
  int32_t RevendaAplicacao = 0;
  int32_t CodigoUsuario = 0;
  std::string ValorNumeracao;
  int32_t Empresa = 0;
  int32_t Revenda = 0;
  // The host that supplied the values (not owned); null until refreshed.
  THostContext* Host = nullptr;

  // Copies every property from the owner.
  void AtualizaPropriedades(THostContext& owner) {
    TipoBanco = owner.TipoBanco();
    RevendaAplicacao = owner.RevendaAplicacao();
    CodigoUsuario = owner.CodigoUsuario();
    ValorNumeracao = owner.ValorNumeracao();
    Empresa = owner.Empresa();
    Revenda = owner.Revenda();
    Host = &owner;
  }
};

}  // namespace kvc

#endif  // KVC_SERVICES_APLICACAO_H_
