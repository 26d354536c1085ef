// A builder of valid 133-character interface records for tests of the
// entry postings.
//
//   RegistroCampos campos;
//   campos.conta1 = "3101001";
//   campos.conta2 = "1101001";
//   campos.centavos = 12345;  // 123.45
//   std::string registro = Registro(campos);
//
// Each field is written left-aligned and padded with blanks to its width,
// counted in characters of the UTF-8 text; a value wider than its field
// throws std::invalid_argument. The positions the posting does not read
// (1-12, 17-32, 39-41) hold '*' so that a field read one position off shows
// up in its value. A test that needs a malformed record edits the returned
// text (positions are 1-based, the string is 0-based).
#ifndef KVC_TESTS_SUPPORT_RECORDS_H_
#define KVC_TESTS_SUPPORT_RECORDS_H_

#include <cstdint>
#include <string>

namespace kvc::testing {

struct RegistroCampos {
  std::string codigo_divisao;              // 13-16
  std::string yymm = "2405";               // 33-36
  std::string dia = "15";                  // 37-38
  std::string historico = "Venda balcao";  // 42-73
  std::string conta1 = "3101001";          // 74-93
  std::string conta2 = "1101001";          // 94-113
  std::string historico_padrao;            // 114-117
  std::string marca = " ";                 // 118
  int64_t centavos = 12345;                // 119-133, zero-padded to 15 digits
};

// The 133-character record of `campos`.
std::string Registro(const RegistroCampos& campos);

// A 20-character account field carrying its division code: the code in the
// first 5 characters and the account in the other 15, each left-aligned.
std::string ContaComCodigo(const std::string& codigo, const std::string& conta);

}  // namespace kvc::testing

#endif  // KVC_TESTS_SUPPORT_RECORDS_H_
