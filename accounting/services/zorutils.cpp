// The utility operations: they touch no database of their own.
#include "accounting/services/zorutils.h"

#include <vector>

#include "accounting/db/dialect.h"
#include "accounting/db/sql_format.h"

namespace kvc {

std::string CompatBanco(const std::string& texto, const std::string& tipo_banco, int32_t, bool) {
  const db::Dialect* dialect = db::DialectByTipoBanco(tipo_banco);
  return dialect ? dialect->Adapt(texto) : texto;
}

std::string DataPSql(const DateTime& data, const std::string& tipo_banco) {
  const db::Dialect* dialect = db::DialectByTipoBanco(tipo_banco);
  return dialect ? dialect->DateLiteral(data) : sql::QuotedAsIs(data.ToIsoDate());
}

std::string DataHoraPSql(const DateTime& data_hora, const std::string& tipo_banco) {
  const db::Dialect* dialect = db::DialectByTipoBanco(tipo_banco);
  if (dialect) return dialect->DateTimeLiteral(data_hora);
  DateTime whole = data_hora;
  whole.millisecond = 0;
  return sql::QuotedAsIs(whole.ToIso());
}

std::string AjustaInSelect(const std::string& campo, const std::string& lista,
                           const std::string& operador, int32_t tipo, int32_t maximo) {
  std::vector<std::string> values;
  size_t start = 0;
  while (start <= lista.size()) {
    size_t comma = lista.find(',', start);
    if (comma == std::string::npos) comma = lista.size();
    std::string value = lista.substr(start, comma - start);
    size_t b = value.find_first_not_of(' ');
    size_t e = value.find_last_not_of(' ');
    value = b == std::string::npos ? "" : value.substr(b, e - b + 1);
    if (!value.empty()) values.push_back(tipo == 1 ? sql::Quoted(value) : value);
    start = comma + 1;
  }
  if (values.empty()) return {};
  const size_t group = maximo > 0 ? static_cast<size_t>(maximo) : values.size();
  std::string lower = operador;
  for (char& c : lower) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  const std::string joiner = lower.find("not") != std::string::npos ? " and " : " or ";
  std::string out = "(";
  for (size_t i = 0; i < values.size(); i += group) {
    if (i) out += joiner;
    out.append(campo).append(" ").append(operador).append(" (");
    for (size_t j = i; j < values.size() && j < i + group; ++j) {
      if (j > i) out += ',';
      out += values[j];
    }
    out += ")";
  }
  out += ")";
  return out;
}

std::unique_ptr<db::ClientDataSet> SQLDatasetToClientDataSet(db::SQLDataSet& dataset) {
  auto copy = std::make_unique<db::ClientDataSet>(dataset.Name() + "_copia");
  copy->LoadFrom(dataset.Rows());
  while (!dataset.Eof()) dataset.Next();
  return copy;
}

}  // namespace kvc
