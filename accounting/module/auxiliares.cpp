// Private helpers of the data module that every family of methods uses.
#include <cstdint>
#include <stdexcept>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {

// A private command dataset on Conexao, with the rewriting step, for a reader
// that must not disturb the member datasets.
std::unique_ptr<db::SQLDataSet> TddmContabilidadeBD::NovaConsulta(const char* nome) {
  auto consulta = std::make_unique<db::SQLDataSet>(nome);
  consulta->SetConnection(conexao_);
  InstallRewriting(*consulta);
  consulta->SetNoMetadata(true);
  return consulta;
}

int32_t TddmContabilidadeBD::StrToInt(const std::string& texto, const char* argumento) {
  int64_t valor = 0;
  if (!sql::ParseInteger(texto, valor) || valor < INT32_MIN || valor > INT32_MAX)
    throw std::invalid_argument("'" + texto + "' is not a valid integer value (" + argumento + ")");
  return static_cast<int32_t>(valor);
}

}  // namespace kvc
