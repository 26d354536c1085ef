// A small host of the module: opens (or creates) an SQLite database, creates
// the schema when it is empty, binds the data module as a host would, and
// prints the server time and a fresh entry number.
#include <cstdio>
#include <string>

#include "accounting/db/dialect.h"
#include "accounting/db/schema.h"
#include "accounting/module/uddmContabilidadeBD.h"

int main(int argc, char** argv) {
  const std::string url = argc > 1 ? argv[1] : "sqlite:kvc_example.db";
  try {
    auto connection = kvc::db::Connect(url);
    if (!kvc::db::SchemaExists(*connection)) kvc::db::CreateSchema(*connection);

    kvc::TSimpleHostContext host;
    host.tipo_banco = std::string(connection->dialect().TipoBanco());
    kvc::TddmContabilidadeBD module;
    module.AtualizaTAplicacao(host, connection.get(), 1);
    if (host.terminate_requested) {
      std::fprintf(stderr, "%s\n", host.last_message.c_str());
      return 1;
    }
    module.SetaSQLConnection();

    kvc::DateTime now = module.DataHoraBD(false, true);
    if (!module.IniciaTransacao()) {
      std::fprintf(stderr, "cannot begin a transaction\n");
      return 1;
    }
    int32_t number = module.PegaNovoLancamento("1", "1", "202401");
    if (!module.ComitaTransacao()) {
      std::fprintf(stderr, "cannot commit\n");
      return 1;
    }
    std::printf("database:     %s\n", url.c_str());
    std::printf("server time:  %s\n", now.ToIso().c_str());
    std::printf("entry number: %d (company 1, dealership 1, month 202401)\n", number);
    module.LimpaSQLConnection();
    module.FinalizaDM();
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "error: %s\n", e.what());
    return 1;
  }
}
