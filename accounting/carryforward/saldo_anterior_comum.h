// What the roll-up and the rebuild of carried-forward balances share: the
// text of a balance value, and the division condition and insert values of a
// carried-forward row, and the messages of failed writes. Internal to the
// carried-forward and closing subsystems.
#ifndef KVC_CARRYFORWARD_SALDO_ANTERIOR_COMUM_H_
#define KVC_CARRYFORWARD_SALDO_ANTERIOR_COMUM_H_

#include <string>

#include "accounting/db/client_dataset.h"

namespace kvc {

// The messages of the error-log rows written when a carried-forward write
// fails (the roll-up and the annual closing).
inline constexpr char kMsgExcluiSaldoAnterior[] = "Erro ao excluir saldo anterior.";
inline constexpr char kMsgIncluiSaldoAnterior[] = "Erro ao incluir saldo anterior.";
inline constexpr char kMsgExcluiSaldoAnteriorDivisao[] = "Erro ao excluir saldo anterior dividido.";
inline constexpr char kMsgIncluiSaldoAnteriorDivisao[] = "Erro ao incluir saldo anterior dividido.";

// A balance written with the default double-to-text conversion and every
// "," replaced by "." (1234.5 is "1234.5" whatever the locale).
std::string ValorSaldoAnterior(double valor);

// The division condition of the current row of `linha` over its seven
// division columns (REVENDA_DIVISAO, TIPO_ITEM, CATEGORIA, CENTRO_CUSTO,
// MODALIDADE_OPERACAO, SECAO_OFICINA, FONTE): " and c is null" or " and c =
// v" (texts quoted); and the same values for an insert, ",v" / ",'v'" /
// ",NULL". With `com_origem` the condition ends with the REVENDA_ORIGEM
// condition as well.
void CondicaoDivisaoSaldo(const db::ClientDataSet& linha, bool com_origem, std::string& condicao,
                          std::string& valores);

}  // namespace kvc

#endif  // KVC_CARRYFORWARD_SALDO_ANTERIOR_COMUM_H_
