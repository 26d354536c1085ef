// The readers shared by the balance operations.
#include "accounting/balances/leitura_saldo.h"

namespace kvc {

Soma SomaPrimeiraColuna(db::SQLDataSet& consulta, std::string sql) {
  consulta.Close();
  consulta.SetCommandText(std::move(sql));
  consulta.Open();
  Soma soma;
  for (consulta.First(); !consulta.Eof(); consulta.Next()) {
    soma.tem_linhas = true;
    soma.valor += consulta.Field(0).AsFloat();
  }
  consulta.Close();
  return soma;
}

double SomaDebitosMenosCreditos(db::SQLDataSet& consulta, std::string sql) {
  consulta.Close();
  consulta.SetCommandText(std::move(sql));
  consulta.Open();
  double debitos = 0, creditos = 0;
  for (consulta.First(); !consulta.Eof(); consulta.Next()) {
    const std::string natureza = consulta.FieldByName("NATUREZA").AsString();
    if (natureza == "C")
      creditos += consulta.FieldByName("TOTAL").AsFloat();
    else if (natureza == "D")
      debitos += consulta.FieldByName("TOTAL").AsFloat();
  }
  consulta.Close();
  return debitos - creditos;
}

db::Value PrimeiroValor(db::SQLDataSet& consulta, std::string sql, const char* campo) {
  consulta.Close();
  consulta.SetCommandText(std::move(sql));
  consulta.Open();
  db::Value valor = consulta.IsEmpty() ? db::Value() : consulta.FieldByName(campo);
  consulta.Close();
  return valor;
}

std::pair<double, size_t> SomaFiltrada(db::ClientDataSet& cds, std::string filtro,
                                       const char* campo) {
  cds.SetFiltered(false);
  cds.SetFilter(std::move(filtro));
  cds.SetFiltered(true);
  double total = 0;
  size_t linhas = 0;
  for (cds.First(); !cds.Eof(); cds.Next(), ++linhas) total += cds.FieldByName(campo).AsFloat();
  return {total, linhas};
}

}  // namespace kvc
