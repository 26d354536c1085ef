// The fixed-width interface record, as the posting methods read it
// (LeRegistro, LeContaDivisao in accounting/entries) and as kvctb checks a
// record of a file before posting it (CheckRecord in cli/record.cpp). The
// input is one record line.
//
// Properties:
// - LeRegistro reads the record or throws RegistroInvalido, nothing else;
//   what it reads has the documented shape (at least 133 characters, "20"
//   before the year and month, an amount of at most 15 digits of
//   hundredths);
// - CheckRecord never throws, with and without the division code in the
//   account fields, and a record it accepts is one that LeRegistro reads;
// - an accepted ASCII record, rebuilt from its fields with BuildRecord,
//   reads back the same fields and is accepted again.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "accounting/entries/registro_interface.h"
#include "cli/record.h"
#include "fuzz/fuzz_check.h"

namespace {

size_t Characters(const std::string& text) {
  size_t n = 0;
  for (char c : text)
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  return n;
}

bool Ascii(const std::string& text) {
  for (char c : text)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

bool SameFields(const kvc::RegistroInterface& a, const kvc::RegistroInterface& b) {
  return a.codigo_divisao == b.codigo_divisao && a.ano_mes == b.ano_mes && a.dia == b.dia &&
         a.historico_complementar == b.historico_complementar &&
         a.primeiro_campo_conta == b.primeiro_campo_conta &&
         a.segundo_campo_conta == b.segundo_campo_conta &&
         a.historico_padrao == b.historico_padrao && a.marca_lado == b.marca_lado &&
         a.valor == b.valor;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string record(reinterpret_cast<const char*>(data), size);

  std::optional<kvc::RegistroInterface> read;
  try {
    read = kvc::LeRegistro(record);
  } catch (const kvc::RegistroInvalido&) {
  }
  if (read) {
    FUZZ_CHECK(Characters(record) >= kvc::kTamanhoRegistro);
    FUZZ_CHECK(read->ano_mes.rfind("20", 0) == 0);
    FUZZ_CHECK(read->valor >= 0 && read->valor <= 9999999999999.99);
    for (bool code_in_account : {false, true}) {
      (void)kvc::LeContaDivisao(read->primeiro_campo_conta, code_in_account, read->codigo_divisao);
      (void)kvc::LeContaDivisao(read->segundo_campo_conta, code_in_account, read->codigo_divisao);
    }
  }

  for (bool code_in_account : {false, true}) {
    const std::string problem = kvc::cli::CheckRecord(record, code_in_account);
    if (!problem.empty()) continue;
    FUZZ_CHECK_MSG(read.has_value(), "CheckRecord accepted a record LeRegistro refuses");
    if (!Ascii(record)) continue;

    kvc::cli::RecordFields f;
    f.division_code = read->codigo_divisao;
    f.yymm = read->ano_mes.substr(2);
    f.day = read->dia;
    f.history = read->historico_complementar;
    f.account1 = read->primeiro_campo_conta;
    f.account2 = read->segundo_campo_conta;
    f.standard_history = read->historico_padrao;
    f.side = read->marca_lado;
    f.cents = std::llround(read->valor * 100);
    const std::string rebuilt = kvc::cli::BuildRecord(f);
    FUZZ_CHECK(rebuilt.size() == kvc::kTamanhoRegistro);
    const kvc::RegistroInterface again = kvc::LeRegistro(rebuilt);
    FUZZ_CHECK_MSG(SameFields(*read, again), "rebuilt: '" + rebuilt + "'");
    const std::string problem_again = kvc::cli::CheckRecord(rebuilt, code_in_account);
    FUZZ_CHECK_MSG(problem_again.empty(), problem_again + " in rebuilt '" + rebuilt + "'");
  }
  return 0;
}
