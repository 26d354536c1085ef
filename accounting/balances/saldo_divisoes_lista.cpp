// The balance of an analytic account with every division given as a list of
// values, at the end of a month (BuscaSaldoComDivisoes) or over a range of
// months (BuscaSaldoComDivisoesPeriodo), and the host's balance formula
// (BuscaSaldoAnteriorFormula) that chooses between that form and the
// single-value balance of BuscaSaldoConta.
#include <string>

#include <fmt/format.h>

#include "accounting/balances/leitura_saldo.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// 2. The division filter: one condition per list ({valores}: the host's
// list as it stands).
constexpr char kSemFiltro[] = "-1";
constexpr char kRevendasDivisao[] = " and revenda_divisao in ({valores})";
constexpr char kCentrosCusto[] = " and centro_custo in ({valores})";
constexpr char kFontes[] = " and fonte in ({valores})";
constexpr char kCategorias[] = " and categoria in ({valores})";
constexpr char kSecoesOficina[] = " and secao_oficina in ({valores})";
constexpr char kTipoItem[] = " and tipo_item = {tipo_item}";
constexpr char kModalidades[] = " and modalidade_operacao in ({valores})";

// The host's extra condition on the journal alias "l".
constexpr char kAdicional[] = " and {condicao}";

// In every statement below {conta} is the account quoted as it stands,
// {exclusao...} the dealership-exclusion predicates and {divisoes} the
// division filter.

// 3. The carried-forward balance of the account's division rows; null when no
// row matched.
constexpr char kSaldoAnterior[] =
    "select sum(e.saldo) saldo"
    " from ctb_saldo_anterior_divisao e "
    " where e.empresa = {empresa}"
    " and e.revenda = {revenda}"
    " and e.ano = {ano}"
    " and e.conta = {conta}{exclusao}{divisoes}";

// 5. Movement from the monthly division table.
constexpr char kMensal[] =
    "select 'D' natureza, sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa = {empresa}"
    " and   e.revenda = {revenda}"
    " and   e.conta = {conta}"
    " and   e.ano_mes between {primeiro} and {ultimo}{exclusao}{divisoes}";

// 5. Movement of the divided entries ({adicional}: the host's extra
// condition).
constexpr char kDivididos[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes between {primeiro} and {ultimo}{exclusao_lancamento}{exclusao_divisao}{adicional}{divisoes}"
    " group by natureza";

// The period form: the monthly table with single blanks after "and".
constexpr char kPeriodoMensal[] =
    "select 'D' natureza, sum(e.saldo) total "
    " from ctb_salant_divisao_mes e "
    " where e.empresa = {empresa}"
    " and e.revenda = {revenda}"
    " and e.conta = {conta}"
    " and e.ano_mes between {inicial} and {final}{exclusao}{divisoes}";

// The period form: the divided entries as a join, the operation dealership's
// exclusion inside its condition.
constexpr char kPeriodoJuncao[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total "
    " from ctb_lancamento_dividido d"
    "           inner join  ctb_lancamento l on (l.lancamento = d.lancamento"
    "                                       and  l.empresa = d.empresa"
    "                                       and l.revenda = d.revenda"
    "                                      and l.ano_mes = d.ano_mes"
    "                                   {exclusao_lancamento}) "
    " where l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes between {inicial} and {final}{exclusao_divisao}{adicional}{divisoes}"
    " group by l.natureza";

// BuscaSaldoAnteriorFormula: the standard histories left out ({nao_em}: the
// utility's "A not in (...)" groups).
constexpr char kExclusaoHistoricos[] = "(({{$ALIAS$}}.HISTORICO_PADRAO is null) or {nao_em})";
constexpr char kHistorico[] = "{$ALIAS$}.HISTORICO_PADRAO";
constexpr char kNaoEm[] = "not in";
constexpr int32_t kMaximoNaoEm = 995;

// 2. The division filter of the list forms, without table alias.
std::string FiltroListas(const std::string& CentrosCusto, const std::string& Fontes,
                         const std::string& Categorias, const std::string& SecoesOficina,
                         const std::string& RevendasDivisao, const std::string& TipoItem,
                         const std::string& Modalidades) {
  auto lista = [](const char* condicao, const std::string& valores) {
    return valores.empty() || valores == kSemFiltro
               ? std::string()
               : fmt::format(fmt::runtime(condicao), fmt::arg("valores", valores));
  };
  std::string filtro = lista(kRevendasDivisao, RevendasDivisao) +
                       lista(kCentrosCusto, CentrosCusto) + lista(kFontes, Fontes) +
                       lista(kCategorias, Categorias) + lista(kSecoesOficina, SecoesOficina);
  // "-1" is a value here, not the absence of a filter.
  if (!TipoItem.empty())
    filtro += fmt::format(kTipoItem, fmt::arg("tipo_item", sql::QuotedAsIs(TipoItem)));
  if (!Modalidades.empty()) filtro += fmt::format(kModalidades, fmt::arg("valores", Modalidades));
  return filtro;
}

// " and " + the extra condition on the journal alias "l", or nothing.
std::string Extra(const std::string& FiltroAdicional) {
  const std::string condicao = TUtilContabil::SetAlias("l", FiltroAdicional);
  return condicao.empty() ? std::string() : fmt::format(kAdicional, fmt::arg("condicao", condicao));
}

// The previous year of a month YYYYMM, from its first four digits.
std::string AnoAnterior(int32_t AnoMes) {
  return sql::Integer(std::stoll(sql::Integer(AnoMes).substr(0, 4)) - 1);
}

}  // namespace

// Steps 1 to 6; the numbers appear in the body.
double TddmContabilidadeBD::BuscaSaldoComDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, const std::string& CentrosCusto,
    const std::string& Fontes, const std::string& Categorias, const std::string& SecoesOficina,
    const std::string& RevendasDivisao, const std::string& TipoItem, const std::string& Modalidades,
    const std::string& Conta, bool SaldoMensal, const std::string& FiltroAdicional,
    const std::string& RevendasDesconsiderar) {
  const std::string ano = sql::Integer(AnoMes).substr(0, 4);  // 1
  const std::string ano_anterior = AnoAnterior(AnoMes);
  const std::string primeiro = ano + "01";
  const std::string ultimo = sql::Integer(AnoMes);
  const std::string divisoes = FiltroListas(CentrosCusto, Fontes, Categorias, SecoesOficina,  // 2
                                            RevendasDivisao, TipoItem, Modalidades);
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  const std::string conta = sql::QuotedAsIs(Conta);
  const std::string exclusao =
      VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "e", "and", false);
  auto consulta = NovaConsulta("sdsSaldoComDivisoes");

  const db::Value saldo = PrimeiroValor(  // 3
      *consulta,
      fmt::format(kSaldoAnterior, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                  fmt::arg("ano", ano_anterior), fmt::arg("conta", conta),
                  fmt::arg("exclusao", exclusao), fmt::arg("divisoes", divisoes)),
      "SALDO");
  if (saldo.IsNull()) {  // 4: the exclusion list is dropped on purpose.
    consulta.reset();
    return BuscaSaldoComDivisoesPeriodo(
        Empresa, Revenda, static_cast<int32_t>(std::stoll(ano_anterior + "01")), AnoMes,
        CentrosCusto, Fontes, Categorias, SecoesOficina, RevendasDivisao, TipoItem, Modalidades,
        Conta, SaldoMensal, FiltroAdicional, "");
  }

  std::string sql;  // 5
  if (SaldoMensal)
    sql = fmt::format(kMensal, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                      fmt::arg("conta", conta), fmt::arg("primeiro", primeiro),
                      fmt::arg("ultimo", ultimo), fmt::arg("exclusao", exclusao),
                      fmt::arg("divisoes", divisoes));
  else
    sql = fmt::format(
        kDivididos, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
        fmt::arg("conta", conta), fmt::arg("primeiro", primeiro), fmt::arg("ultimo", ultimo),
        fmt::arg("exclusao_lancamento",
                 VerifRevendasDesconsiderar(RevendasDesconsiderar, true, "l", "and", true)),
        fmt::arg("exclusao_divisao",
                 VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "d", "and", true)),
        fmt::arg("adicional", Extra(FiltroAdicional)), fmt::arg("divisoes", divisoes));
  return saldo.AsFloat() + SomaDebitosMenosCreditos(*consulta, std::move(sql));  // 6
}

// As BuscaSaldoComDivisoes over AnoMesInicial to AnoMesFinal, with the
// previous year taken from AnoMesInicial and no fallback: a null
// carried-forward balance reads as zero.
double TddmContabilidadeBD::BuscaSaldoComDivisoesPeriodo(
    int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
    const std::string& CentrosCusto, const std::string& Fontes, const std::string& Categorias,
    const std::string& SecoesOficina, const std::string& RevendasDivisao,
    const std::string& TipoItem, const std::string& Modalidades, const std::string& Conta,
    bool SaldoMensal, const std::string& FiltroAdicional,
    const std::string& RevendasDesconsiderar) {
  const std::string ano_anterior = AnoAnterior(AnoMesInicial);  // 1
  const std::string inicial = sql::Integer(AnoMesInicial);
  const std::string final_ = sql::Integer(AnoMesFinal);
  const std::string divisoes = FiltroListas(CentrosCusto, Fontes, Categorias, SecoesOficina,  // 2
                                            RevendasDivisao, TipoItem, Modalidades);
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  const std::string conta = sql::QuotedAsIs(Conta);
  const std::string exclusao =
      VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "e", "and", false);
  auto consulta = NovaConsulta("sdsSaldoComDivisoesPeriodo");

  const db::Value saldo = PrimeiroValor(  // 3, with no fallback (4)
      *consulta,
      fmt::format(kSaldoAnterior, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                  fmt::arg("ano", ano_anterior), fmt::arg("conta", conta),
                  fmt::arg("exclusao", exclusao), fmt::arg("divisoes", divisoes)),
      "SALDO");

  std::string sql;  // 5
  if (SaldoMensal)
    sql = fmt::format(kPeriodoMensal, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                      fmt::arg("conta", conta), fmt::arg("inicial", inicial),
                      fmt::arg("final", final_), fmt::arg("exclusao", exclusao),
                      fmt::arg("divisoes", divisoes));
  else
    sql = fmt::format(
        kPeriodoJuncao,
        fmt::arg("exclusao_lancamento",
                 VerifRevendasDesconsiderar(RevendasDesconsiderar, true, "l", "and", true)),
        fmt::arg("empresa", empresa), fmt::arg("revenda", revenda), fmt::arg("conta", conta),
        fmt::arg("inicial", inicial), fmt::arg("final", final_),
        fmt::arg("exclusao_divisao",
                 VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "d", "and", true)),
        fmt::arg("adicional", Extra(FiltroAdicional)), fmt::arg("divisoes", divisoes));
  return (saldo.IsNull() ? 0.0 : saldo.AsFloat()) +
         SomaDebitosMenosCreditos(*consulta, std::move(sql));  // 6
}

// Steps 1 to 5; the numbers appear in the body.
double TddmContabilidadeBD::BuscaSaldoAnteriorFormula(
    const std::string& Conta, const std::string& Nivel, const std::string& CentrosCusto,
    const std::string& Fontes, const std::string& Categorias, const std::string& SecoesOficina,
    const std::string& RevendasDivisao, const std::string& TipoItem, const std::string& Modalidades,
    const DateTime& Data, double& Saldo, bool SaldoMensal, const std::string& HistoricosExcluidos) {
  // 1. Called as AjustaInSelect("{$ALIAS$}.HISTORICO_PADRAO is null) or
  // ({$ALIAS$}.HISTORICO_PADRAO", list, "not in", 0, 995), the utility gives a
  // bare "(A is null) or (A not in (...))": after the balance's " and " that
  // "or" would escape the statement's other conditions, and past 995 codes
  // its split groups would pair with the null test instead of each other. So
  // the utility gets the column alone, the null test is written here and the
  // whole is parenthesised: "((A is null) or (A not in (...)))", the same
  // text up to 995 codes and still a correct exclusion beyond.
  const std::string lista_historicos =
      AjustaInSelect(kHistorico, HistoricosExcluidos, kNaoEm, 0, kMaximoNaoEm);
  const std::string filtro =
      lista_historicos.empty()
          ? std::string()
          : fmt::format(kExclusaoHistoricos, fmt::arg("nao_em", lista_historicos));

  Saldo = 0;  // 2
  int32_t ano = Data.year;
  int32_t mes = Data.month - 1;
  if (mes == 0) {
    mes = 12;
    --ano;
  }
  const int32_t ano_mes = ano * 100 + mes;
  const int32_t empresa = Aplicacao()->Empresa;
  const int32_t revenda = Aplicacao()->Revenda;
  const std::string divisoes[] = {CentrosCusto,    Fontes,   Categorias, SecoesOficina,
                                  RevendasDivisao, TipoItem, Modalidades};

  bool todas_vazias = true, alguma_lista = false;
  for (const std::string& divisao : divisoes) {
    todas_vazias = todas_vazias && divisao.empty();
    alguma_lista = alguma_lista || divisao.find(',') != std::string::npos;
  }
  // The single-value balance gets 0 for its two unused integers, Geral false
  // and no dealership exclusion; the formula has none of these.
  if (todas_vazias)  // 3
    return BuscaSaldoConta(empresa, revenda, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "", Conta,
                           Nivel, "", Saldo, false, SaldoMensal, filtro, "");
  if (alguma_lista) {  // 4
    Saldo = BuscaSaldoComDivisoes(empresa, revenda, ano_mes, CentrosCusto, Fontes, Categorias,
                                  SecoesOficina, RevendasDivisao, TipoItem, Modalidades, Conta,
                                  SaldoMensal, filtro, "");
    return Saldo;
  }
  // 5. Single values. The modality comes as SQL text for the list form
  // ("'V'"), while the single-value balance quotes it itself, so the
  // modality loses its quotes; the item type is written between quotes by
  // both forms and goes through unchanged.
  auto inteiro = [](const std::string& texto, const char* argumento) {
    return texto.empty() ? -1 : StrToInt(texto, argumento);
  };
  std::string modalidade = Modalidades;
  std::erase(modalidade, '\'');
  return BuscaSaldoConta(empresa, revenda, ano_mes, 0, 0, inteiro(CentrosCusto, "CentrosCusto"),
                         inteiro(Fontes, "Fontes"), inteiro(Categorias, "Categorias"),
                         inteiro(SecoesOficina, "SecoesOficina"),
                         inteiro(RevendasDivisao, "RevendasDivisao"), TipoItem, modalidade, Conta,
                         Nivel, "", Saldo, false, SaldoMensal, filtro, "");
}

}  // namespace kvc
