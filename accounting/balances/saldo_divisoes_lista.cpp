// The balance of an analytic account with every division given as a list of
// values, at the end of a month (BuscaSaldoComDivisoes) or over a range of
// months (BuscaSaldoComDivisoesPeriodo), and the host's balance formula
// (BuscaSaldoAnteriorFormula) that chooses between that form and the
// single-value balance of BuscaSaldoConta.
#include <string>

#include "accounting/balances/leitura_saldo.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// 2. The division filter: one condition per list.
constexpr char kSemFiltro[] = "-1";
constexpr char kRevendasDivisao[] = " and revenda_divisao in (";
constexpr char kCentrosCusto[] = " and centro_custo in (";
constexpr char kFontes[] = " and fonte in (";
constexpr char kCategorias[] = " and categoria in (";
constexpr char kSecoesOficina[] = " and secao_oficina in (";
constexpr char kTipoItem[] = " and tipo_item = '";
constexpr char kModalidades[] = " and modalidade_operacao in (";

// 3. The carried-forward balance of the account's division rows; null when no
// row matched.
constexpr char kSaldoAnterior[] =
    "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = ";
constexpr char kSaldoAnteriorRevenda[] = " and e.revenda = ";
constexpr char kSaldoAnteriorAno[] = " and e.ano = ";
constexpr char kSaldoAnteriorConta[] = " and e.conta = '";

// 5. Movement from the monthly division table.
constexpr char kMensal[] =
    "select 'D' natureza, sum(e.saldo) total from ctb_salant_divisao_mes e  where e.empresa = ";
constexpr char kMensalRevenda[] = " and   e.revenda = ";
constexpr char kMensalConta[] = " and   e.conta = '";
constexpr char kMensalPeriodo[] = " and   e.ano_mes between ";

// 5. Movement of the divided entries.
constexpr char kDivididos[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total from ctb_lancamento_dividido d, "
    "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda "
    "= d.revenda and l.ano_mes = d.ano_mes and l.empresa = ";
constexpr char kDivididosRevenda[] = " and l.revenda = ";
constexpr char kDivididosConta[] = " and l.conta = '";
constexpr char kDivididosPeriodo[] = " and l.ano_mes between ";
constexpr char kDivididosGrupo[] = " group by natureza";

// The period form: the monthly table with single blanks after "and".
constexpr char kPeriodoMensal[] =
    "select 'D' natureza, sum(e.saldo) total  from ctb_salant_divisao_mes e  where e.empresa = ";
constexpr char kPeriodoMensalRevenda[] = " and e.revenda = ";
constexpr char kPeriodoMensalConta[] = " and e.conta = '";
constexpr char kPeriodoMensalPeriodo[] = " and e.ano_mes between ";

// The period form: the divided entries as a join, the operation dealership's
// exclusion inside its condition.
constexpr char kPeriodoJuncao[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d"
    "           inner join  ctb_lancamento l on (l.lancamento = d.lancamento"
    "                                       and  l.empresa = d.empresa"
    "                                       and l.revenda = d.revenda"
    "                                      and l.ano_mes = d.ano_mes"
    "                                   ";
constexpr char kPeriodoJuncaoFim[] = ") ";
constexpr char kPeriodoEmpresa[] = " where l.empresa = ";
constexpr char kPeriodoRevenda[] = " and l.revenda = ";
constexpr char kPeriodoConta[] = " and l.conta = '";
constexpr char kPeriodoPeriodo[] = " and l.ano_mes between ";
constexpr char kPeriodoGrupo[] = " group by l.natureza";

// BuscaSaldoAnteriorFormula: the standard histories left out.
constexpr char kHistoricoNulo[] = "({$ALIAS$}.HISTORICO_PADRAO is null) or ";
constexpr char kHistorico[] = "{$ALIAS$}.HISTORICO_PADRAO";
constexpr char kNaoEm[] = "not in";
constexpr int32_t kMaximoNaoEm = 995;

constexpr char kAnd[] = " and ";
constexpr char kAspa[] = "'";
constexpr char kFecha[] = ")";

// 2. The division filter of the list forms, without table alias.
std::string FiltroListas(const std::string& CentrosCusto, const std::string& Fontes,
                         const std::string& Categorias, const std::string& SecoesOficina,
                         const std::string& RevendasDivisao, const std::string& TipoItem,
                         const std::string& Modalidades) {
  auto lista = [](const char* condicao, const std::string& valores) {
    return valores.empty() || valores == kSemFiltro ? std::string() : condicao + valores + kFecha;
  };
  std::string fd = lista(kRevendasDivisao, RevendasDivisao) + lista(kCentrosCusto, CentrosCusto) +
                   lista(kFontes, Fontes) + lista(kCategorias, Categorias) +
                   lista(kSecoesOficina, SecoesOficina);
  // "-1" is a value here, not the absence of a filter.
  if (!TipoItem.empty()) fd += kTipoItem + TipoItem + kAspa;
  if (!Modalidades.empty()) fd += kModalidades + Modalidades + kFecha;
  return fd;
}

// " and " + the extra condition on the journal alias "l", or nothing.
std::string Extra(const std::string& FiltroAdicional) {
  const std::string condicao = TUtilContabil::SetAlias("l", FiltroAdicional);
  return condicao.empty() ? std::string() : kAnd + condicao;
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
  const std::string fd = FiltroListas(CentrosCusto, Fontes, Categorias, SecoesOficina,  // 2
                                      RevendasDivisao, TipoItem, Modalidades);
  const std::string e = sql::Integer(Empresa);
  const std::string r = sql::Integer(Revenda);
  const std::string exc_e =
      VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "e", "and", false);
  auto q = NovaConsulta("sdsSaldoComDivisoes");

  const db::Value saldo = PrimeiroValor(  // 3
      *q,
      kSaldoAnterior + e + kSaldoAnteriorRevenda + r + kSaldoAnteriorAno + ano_anterior +
          kSaldoAnteriorConta + Conta + kAspa + exc_e + fd,
      "SALDO");
  if (saldo.IsNull()) {  // 4: the exclusion list is dropped on purpose.
    q.reset();
    return BuscaSaldoComDivisoesPeriodo(
        Empresa, Revenda, static_cast<int32_t>(std::stoll(ano_anterior + "01")), AnoMes,
        CentrosCusto, Fontes, Categorias, SecoesOficina, RevendasDivisao, TipoItem, Modalidades,
        Conta, SaldoMensal, FiltroAdicional, "");
  }

  std::string sql;  // 5
  if (SaldoMensal)
    sql = kMensal + e + kMensalRevenda + r + kMensalConta + Conta + kAspa + kMensalPeriodo +
          primeiro + kAnd + ultimo + exc_e + fd;
  else
    sql = kDivididos + e + kDivididosRevenda + r + kDivididosConta + Conta + kAspa +
          kDivididosPeriodo + primeiro + kAnd + ultimo +
          VerifRevendasDesconsiderar(RevendasDesconsiderar, true, "l", "and", true) +
          VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "d", "and", true) +
          Extra(FiltroAdicional) + fd + kDivididosGrupo;
  return saldo.AsFloat() + SomaDebitosMenosCreditos(*q, std::move(sql));  // 6
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
  const std::string fd = FiltroListas(CentrosCusto, Fontes, Categorias, SecoesOficina,  // 2
                                      RevendasDivisao, TipoItem, Modalidades);
  const std::string e = sql::Integer(Empresa);
  const std::string r = sql::Integer(Revenda);
  const std::string exc_e =
      VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "e", "and", false);
  auto q = NovaConsulta("sdsSaldoComDivisoesPeriodo");

  const db::Value saldo = PrimeiroValor(  // 3, with no fallback (4)
      *q,
      kSaldoAnterior + e + kSaldoAnteriorRevenda + r + kSaldoAnteriorAno + ano_anterior +
          kSaldoAnteriorConta + Conta + kAspa + exc_e + fd,
      "SALDO");

  std::string sql;  // 5
  if (SaldoMensal)
    sql = kPeriodoMensal + e + kPeriodoMensalRevenda + r + kPeriodoMensalConta + Conta + kAspa +
          kPeriodoMensalPeriodo + inicial + kAnd + final_ + exc_e + fd;
  else
    sql = kPeriodoJuncao +
          VerifRevendasDesconsiderar(RevendasDesconsiderar, true, "l", "and", true) +
          kPeriodoJuncaoFim + kPeriodoEmpresa + e + kPeriodoRevenda + r + kPeriodoConta + Conta +
          kAspa + kPeriodoPeriodo + inicial + kAnd + final_ +
          VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "d", "and", true) +
          Extra(FiltroAdicional) + fd + kPeriodoGrupo;
  return (saldo.IsNull() ? 0.0 : saldo.AsFloat()) +
         SomaDebitosMenosCreditos(*q, std::move(sql));  // 6
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
      lista_historicos.empty() ? std::string() : "(" + (kHistoricoNulo + lista_historicos) + kFecha;

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
  for (const std::string& d : divisoes) {
    todas_vazias = todas_vazias && d.empty();
    alguma_lista = alguma_lista || d.find(',') != std::string::npos;
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
