// The arguments shared by the balance operations of one account: company,
// dealership, the division filters (-1 or empty for none), the modality or
// "SPED", the account, and the options. Internal to the balance subsystem.
#ifndef KVC_BALANCES_SALDO_FILTROS_H_
#define KVC_BALANCES_SALDO_FILTROS_H_

#include <cstdint>
#include <string>

namespace kvc {

struct FiltroSaldo {
  int32_t empresa = 0;
  int32_t revenda = 0;
  int32_t centro_custo = -1;
  int32_t fonte = -1;
  int32_t categoria = -1;
  int32_t secao_oficina = -1;
  int32_t revenda_divisao = -1;
  std::string tipo_item;
  std::string modalidade;
  std::string conta;
  std::string centros_custo;
  bool saldo_mensal = false;
  std::string filtro_adicional;
  std::string revendas_desconsiderar;
};

}  // namespace kvc

#endif  // KVC_BALANCES_SALDO_FILTROS_H_
