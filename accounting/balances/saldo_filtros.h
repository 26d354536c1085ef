// The arguments shared by the balance operations of one account: company,
// dealership, the division filters (-1 or empty for none), the modality or
// "SPED", the account, and the options. Internal to the balance subsystem.
#ifndef KVC_BALANCES_SALDO_FILTROS_H_
#define KVC_BALANCES_SALDO_FILTROS_H_

#include <cstdint>
#include <string>
#include <utility>

namespace kvc {

struct FiltroSaldo {
  FiltroSaldo() = default;
  // The arguments of the single-value balance operations, in their order.
  FiltroSaldo(int32_t empresa_, int32_t revenda_, int32_t centro_custo_, int32_t fonte_,
              int32_t categoria_, int32_t secao_oficina_, int32_t revenda_divisao_,
              std::string tipo_item_, std::string modalidade_, std::string conta_,
              std::string centros_custo_, bool saldo_mensal_, std::string filtro_adicional_,
              std::string revendas_desconsiderar_)
      : empresa(empresa_),
        revenda(revenda_),
        centro_custo(centro_custo_),
        fonte(fonte_),
        categoria(categoria_),
        secao_oficina(secao_oficina_),
        revenda_divisao(revenda_divisao_),
        tipo_item(std::move(tipo_item_)),
        modalidade(std::move(modalidade_)),
        conta(std::move(conta_)),
        centros_custo(std::move(centros_custo_)),
        saldo_mensal(saldo_mensal_),
        filtro_adicional(std::move(filtro_adicional_)),
        revendas_desconsiderar(std::move(revendas_desconsiderar_)) {}

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
  // The list forms of the division variants ("" for none); a list takes
  // precedence over the single value of its dimension.
  std::string fontes;
  std::string categorias;
  std::string secoes_oficina;
  std::string modalidades;
  std::string revendas_divisao;
  // The division variants apply the exclusion list through the join of the
  // entries to their division rows.
  bool juncao_exclusao = false;

  // Whether a division filter is in force, judged on the arguments: any
  // integer filter other than -1 (even one that adds no condition), any list
  // or item type, any modality other than "SPED".
  bool ComFiltro() const {
    return centro_custo != -1 || fonte != -1 || categoria != -1 || secao_oficina != -1 ||
           revenda_divisao != -1 || !centros_custo.empty() || !tipo_item.empty() ||
           !(modalidade.empty() || modalidade == "SPED") || !fontes.empty() ||
           !categorias.empty() || !secoes_oficina.empty() || !modalidades.empty() ||
           !revendas_divisao.empty();
  }
};

}  // namespace kvc

#endif  // KVC_BALANCES_SALDO_FILTROS_H_
