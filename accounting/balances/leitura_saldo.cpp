// The readers shared by the balance operations.
#include "accounting/balances/leitura_saldo.h"

namespace kvc {

Soma SomaPrimeiraColuna(db::SQLDataSet& q, std::string sql) {
  q.Close();
  q.SetCommandText(std::move(sql));
  q.Open();
  Soma soma;
  for (q.First(); !q.Eof(); q.Next()) {
    soma.tem_linhas = true;
    soma.valor += q.Field(0).AsFloat();
  }
  q.Close();
  return soma;
}

double SomaDebitosMenosCreditos(db::SQLDataSet& q, std::string sql) {
  q.Close();
  q.SetCommandText(std::move(sql));
  q.Open();
  double debitos = 0, creditos = 0;
  for (q.First(); !q.Eof(); q.Next()) {
    const std::string natureza = q.FieldByName("NATUREZA").AsString();
    if (natureza == "C")
      creditos += q.FieldByName("TOTAL").AsFloat();
    else if (natureza == "D")
      debitos += q.FieldByName("TOTAL").AsFloat();
  }
  q.Close();
  return debitos - creditos;
}

db::Value PrimeiroValor(db::SQLDataSet& q, std::string sql, const char* campo) {
  q.Close();
  q.SetCommandText(std::move(sql));
  q.Open();
  db::Value valor = q.IsEmpty() ? db::Value() : q.FieldByName(campo);
  q.Close();
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
