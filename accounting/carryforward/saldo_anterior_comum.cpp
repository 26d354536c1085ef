// The value text and division condition shared by the roll-up and the
// rebuild of carried-forward balances.
#include "accounting/carryforward/saldo_anterior_comum.h"

#include "accounting/db/sql_format.h"

namespace kvc {
namespace {

// The seven division columns, in the order of the condition and the insert;
// the texts are quoted.
struct ColunaDivisao {
  const char* nome;
  bool texto;
};
constexpr ColunaDivisao kColunas[] = {{"revenda_divisao", false},
                                      {"tipo_item", true},
                                      {"categoria", false},
                                      {"centro_custo", false},
                                      {"modalidade_operacao", true},
                                      {"secao_oficina", false},
                                      {"fonte", false}};

}  // namespace

std::string ValorSaldoAnterior(double valor) {
  std::string texto = sql::DefaultDouble(valor);
  for (char& c : texto)
    if (c == ',') c = '.';
  return texto;
}

void CondicaoDivisaoSaldo(const db::ClientDataSet& linha, bool com_origem, std::string& condicao,
                          std::string& valores) {
  condicao.clear();
  valores.clear();
  for (const ColunaDivisao& coluna : kColunas) {
    const db::Value& v = linha.FieldByName(coluna.nome);
    if (v.IsNull()) {
      condicao += std::string(" and ") + coluna.nome + " is null";
      valores += ",NULL";
    } else if (coluna.texto) {
      condicao += std::string(" and ") + coluna.nome + " = " + sql::QuotedAsIs(v.AsString());
      valores += "," + sql::QuotedAsIs(v.AsString());
    } else {
      condicao += std::string(" and ") + coluna.nome + " = " + v.AsString();
      valores += "," + v.AsString();
    }
  }
  if (!com_origem) return;
  const db::Value& origem = linha.FieldByName("REVENDA_ORIGEM");
  condicao += origem.IsNull() ? std::string(" and REVENDA_ORIGEM is null")
                              : " and REVENDA_ORIGEM = " + origem.AsString();
}

}  // namespace kvc
