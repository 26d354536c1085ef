// The reader of the fixed-width interface record.
#include "accounting/entries/registro_interface.h"

#include <cstdint>
#include <cstring>

#include "accounting/db/sql_format.h"

namespace kvc {
namespace {

// Byte offset of the character at 0-based index `chars` of UTF-8 text (the
// text's size when it is shorter).
size_t ByteOffset(std::string_view text, size_t chars) {
  size_t pos = 0;
  // Records are mostly ASCII, where a byte is a character: eight at a time
  // up to the first stretch holding another byte. Every field of every
  // record is found from the record's start, twice per posting.
  constexpr uint64_t kHighBits = 0x8080808080808080ull;
  while (chars >= 8 && pos + 8 <= text.size()) {
    uint64_t stretch;
    std::memcpy(&stretch, text.data() + pos, sizeof stretch);
    if (stretch & kHighBits) break;
    pos += 8;
    chars -= 8;
  }
  // As below, bytes that continue a character belong to the one before.
  if (pos > 0)
    while (pos < text.size() && (static_cast<unsigned char>(text[pos]) & 0xC0) == 0x80) ++pos;
  while (chars > 0 && pos < text.size()) {
    ++pos;
    while (pos < text.size() && (static_cast<unsigned char>(text[pos]) & 0xC0) == 0x80) ++pos;
    --chars;
  }
  return pos;
}

size_t CharCount(std::string_view text) {
  size_t n = 0;
  for (char c : text)
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  return n;
}

}  // namespace

std::string Posicoes(std::string_view texto, size_t inicio, size_t tamanho) {
  size_t begin = ByteOffset(texto, inicio - 1);
  size_t end = ByteOffset(texto.substr(begin), tamanho);
  return std::string(texto.substr(begin, end));
}

std::string Apara(std::string_view texto) {
  size_t b = 0, e = texto.size();
  while (b < e && static_cast<unsigned char>(texto[b]) <= ' ') ++b;
  while (e > b && static_cast<unsigned char>(texto[e - 1]) <= ' ') --e;
  return std::string(texto.substr(b, e - b));
}

RegistroInterface LeRegistro(std::string_view registro) {
  const size_t length = CharCount(registro);
  if (length < kTamanhoRegistro)
    throw RegistroInvalido("record too short: " + std::to_string(length) +
                           " characters, the amount (positions 119-133) needs 133");
  RegistroInterface r;
  r.codigo_divisao = Apara(Posicoes(registro, 13, 4));
  r.ano_mes = "20" + Posicoes(registro, 33, 4);
  r.dia = Posicoes(registro, 37, 2);
  r.historico_complementar = Apara(Posicoes(registro, 42, 32));
  r.primeiro_campo_conta = Posicoes(registro, 74, 20);
  r.segundo_campo_conta = Posicoes(registro, 94, 20);
  r.historico_padrao = Apara(Posicoes(registro, 114, 4));
  r.marca_lado = Posicoes(registro, 118, 1);
  const std::string amount = Posicoes(registro, 119, 15);
  const std::string digits = Apara(amount);
  int64_t hundredths = 0;
  bool only_digits = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
  if (!only_digits || !sql::ParseInteger(digits, hundredths))
    throw RegistroInvalido("amount (positions 119-133) is not a number: '" + amount + "'");
  r.valor = static_cast<double>(hundredths) / 100.0;
  return r;
}

ContaDivisao LeContaDivisao(std::string_view campo, bool codigo_na_conta,
                            const std::string& codigo_registro) {
  if (codigo_na_conta) return {Apara(Posicoes(campo, 6, 15)), Apara(Posicoes(campo, 1, 5))};
  return {Apara(campo), codigo_registro};
}

}  // namespace kvc
