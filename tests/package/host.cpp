// Binds the installed module to a private SQLite database and draws an entry
// number: proof that the installed headers, library and package config work.
#include <accounting/db/schema.h>
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
  std::printf("package host: entry number %d\n", number);
  dm.FinalizaDM();
  return 0;
}
