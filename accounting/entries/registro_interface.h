// The fixed-width interface record from which entries are posted: the
// positions of its fields and the one reader that both posting methods use.
#ifndef KVC_ENTRIES_REGISTRO_INTERFACE_H_
#define KVC_ENTRIES_REGISTRO_INTERFACE_H_

#include <stdexcept>
#include <string>
#include <string_view>

#include "accounting/db/api.h"

namespace kvc {

// A record that cannot be posted. what() names the field and its positions,
// e.g. "amount (positions 119-133) is not a number: '00000012a450000'".
class KVC_API RegistroInvalido : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// The fields of a record, read by position (1-based, counted in characters
// of the UTF-8 text).
struct KVC_API RegistroInterface {
  // Positions 13-16, trimmed.
  std::string codigo_divisao;
  // "20" followed by positions 33-36 (YYMM), as they stand.
  std::string ano_mes;
  // Positions 37-38, as they stand.
  std::string dia;
  // Positions 42-73, trimmed.
  std::string historico_complementar;
  // Positions 74-93 and 94-113, untrimmed.
  std::string primeiro_campo_conta;
  std::string segundo_campo_conta;
  // Positions 114-117, trimmed.
  std::string historico_padrao;
  // Position 118.
  std::string marca_lado;
  // Positions 119-133 divided by 100.
  double valor = 0;
};

// An account and its division code, read from a 20-character account field.
struct KVC_API ContaDivisao {
  std::string conta;
  std::string codigo_divisao;
};

// The length a record needs: its last field ends at position 133.
inline constexpr size_t kTamanhoRegistro = 133;

// Reads every field of `registro`. Throws RegistroInvalido when the record
// is shorter than 133 characters (its amount would be cut) or when the amount
// is not a number of decimal digits; nothing else is validated here.
KVC_API RegistroInterface LeRegistro(std::string_view registro);

// The account of a 20-character field. With `codigo_na_conta` the first 5
// characters are the division code and the other 15 the account (both
// trimmed); otherwise the whole field is the account (trimmed) and the code is
// `codigo_registro` (the record's positions 13-16).
KVC_API ContaDivisao LeContaDivisao(std::string_view campo, bool codigo_na_conta,
                                    const std::string& codigo_registro);

// Characters [inicio, inicio + tamanho) of UTF-8 text, 1-based like the
// record's positions; shorter (possibly empty) past the end.
KVC_API std::string Posicoes(std::string_view texto, size_t inicio, size_t tamanho);

// `texto` without leading and trailing blanks and control characters.
KVC_API std::string Apara(std::string_view texto);

}  // namespace kvc

#endif  // KVC_ENTRIES_REGISTRO_INTERFACE_H_
