#include "accounting/module/formato_numerico.h"

#include <clocale>
#include <cmath>

#include "accounting/db/sql_format.h"

namespace kvc {

SeparadoresNumericos SeparadoresDoLocale() {
  // localeconv reflects setlocale; the module serves one thread at a time,
  // so reading its static buffer here is safe.
  const std::lconv* lc = std::localeconv();
  SeparadoresNumericos s;
  if (lc && lc->decimal_point && *lc->decimal_point) s.decimal = lc->decimal_point;
  if (lc && lc->thousands_sep && *lc->thousands_sep) s.milhar = lc->thousands_sep;
  return s;
}

std::string FormataMilhar(double valor, const SeparadoresNumericos& separadores) {
  if (!std::isfinite(valor)) return sql::Amount(valor);
  // sql::Amount already rounds to "########0.00" with a point; only the
  // grouping and the separators are added here.
  const std::string simples = sql::Amount(valor);
  const bool negativo = simples.front() == '-';
  const size_t ponto = simples.find('.');
  const std::string inteiro = simples.substr(negativo ? 1 : 0, ponto - (negativo ? 1 : 0));
  std::string resultado = negativo ? "-" : "";
  for (size_t i = 0; i < inteiro.size(); ++i) {
    if (i > 0 && (inteiro.size() - i) % 3 == 0) resultado += separadores.milhar;
    resultado += inteiro[i];
  }
  return resultado + separadores.decimal + simples.substr(ponto + 1);
}

}  // namespace kvc
