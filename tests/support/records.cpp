// The builder of interface records for tests.
#include "support/records.h"

#include <stdexcept>

namespace kvc::testing {
namespace {

size_t Characters(const std::string& text) {
  size_t n = 0;
  for (char c : text)
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  return n;
}

// `valor` left-aligned in `largura` characters.
std::string Campo(const std::string& valor, size_t largura, const char* nome) {
  const size_t n = Characters(valor);
  if (n > largura)
    throw std::invalid_argument(std::string(nome) + " is wider than its " +
                                std::to_string(largura) + " characters: '" + valor + "'");
  return valor + std::string(largura - n, ' ');
}

}  // namespace

std::string Registro(const RegistroCampos& campos) {
  if (campos.centavos < 0) throw std::invalid_argument("centavos must not be negative");
  std::string valor = std::to_string(campos.centavos);
  if (valor.size() > 15) throw std::invalid_argument("centavos has more than 15 digits");
  valor = std::string(15 - valor.size(), '0') + valor;

  std::string r;
  r += std::string(12, '*');                                   // 1-12
  r += Campo(campos.codigo_divisao, 4, "codigo_divisao");      // 13-16
  r += std::string(16, '*');                                   // 17-32
  r += Campo(campos.yymm, 4, "yymm");                          // 33-36
  r += Campo(campos.dia, 2, "dia");                            // 37-38
  r += std::string(3, '*');                                    // 39-41
  r += Campo(campos.historico, 32, "historico");               // 42-73
  r += Campo(campos.conta1, 20, "conta1");                     // 74-93
  r += Campo(campos.conta2, 20, "conta2");                     // 94-113
  r += Campo(campos.historico_padrao, 4, "historico_padrao");  // 114-117
  r += Campo(campos.marca, 1, "marca");                        // 118
  r += valor;                                                  // 119-133
  return r;
}

std::string ContaComCodigo(const std::string& codigo, const std::string& conta) {
  return Campo(codigo, 5, "codigo") + Campo(conta, 15, "conta");
}

}  // namespace kvc::testing
