// Binds the installed module to a private SQLite database and draws an entry
// number: proof that the installed headers, library and package config work.
#include <accounting/db/schema.h>
#include <accounting/entries/registro_interface.h>
#include <accounting/module/uddmContabilidadeBD.h>

#include <cstdio>

int main() {
  auto connection = kvc::db::Connect("sqlite::memory:");
  kvc::db::CreateSchema(*connection);
  kvc::TSimpleHostContext host;
  kvc::TddmContabilidadeBD dm;
  dm.AtualizaTAplicacao(host, connection.get(), 1);
  dm.SetaSQLConnection();
  if (!dm.IniciaTransacao()) return 1;
  int number = dm.PegaNovoLancamento("1", "1", "202405");
  if (!dm.ComitaTransacao() || number != 1) return 1;
  // A malformed record is refused with the exception type the host catches
  // by name (its type information crosses the library boundary).
  bool refused = false;
  try {
    dm.GravaLancamento("too short", "1", "1", "", "", false);
  } catch (const kvc::RegistroInvalido&) {
    refused = true;
  }
  if (!refused) return 1;
  std::printf("package host: entry number %d\n", number);
  dm.FinalizaDM();
  return 0;
}
