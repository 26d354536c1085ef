// The balance of an account at the end of a month: the carried-forward
// balance of the previous year plus the movement from January, for one
// analytic account (BuscaSaldoContaAnalitica) or, through the chart, for a
// synthetic one (BuscaSaldoConta), with division filters, dealership
// exclusion and the second book; and the balance over a range of months
// (BuscaSaldoAntContaAnaliticaPeriodo) that serves as their fallback.
// Each call runs its statements on a private query object of its own.
#include <functional>

#include <fmt/format.h>

#include "accounting/balances/leitura_saldo.h"
#include "accounting/balances/saldo_filtros.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kSped[] = "SPED";

// 6.1: the carried-forward rows of the account, in the table and with the
// dealership restriction that DefineTabelaSaldoAnterior chose ({tabela},
// {restricao_revenda}); {exclusao}: the dealership-exclusion predicate.
constexpr char kSaldoAnterior[] =
    "select saldo  "
    " from {tabela}"
    " where empresa = {empresa}{restricao_revenda}  "
    " and conta = {conta}  "
    " and ano = {ano}{exclusao}";

// The no-filter case of 9 (month 00): the same rows, year before account.
constexpr char kSaldoAnteriorAbertura[] =
    "select saldo"
    " from {tabela}"
    " where empresa = {empresa}{restricao_revenda}"
    " and ano = {ano}"
    " and conta = {conta}{exclusao}";

// 7.1: does the company have any carried-forward row for the year.
constexpr char kExisteSaldoAnterior[] =
    "select SALDO  "
    " from {tabela}"
    " where empresa = {empresa}{restricao_revenda}  "
    " and ano     = {ano}{exclusao}";

// 7.2: the carried-forward balance of the account's division rows
// ({divisoes}: the division filter).
constexpr char kSaldoAnteriorDivisao[] =
    "select coalesce(sum(e.saldo),0) saldo  "
    " from ctb_saldo_anterior_divisao e "
    " where e.empresa = {empresa}"
    " and e.revenda = {revenda}"
    " and e.ano = {ano}"
    " and e.conta = {conta}{exclusao}{divisoes}";

// 9, second book with a division filter.
constexpr char kSaldoAnteriorDivisaoCV[] =
    "select coalesce(sum(saldo),0) saldo  "
    " from ctb_saldo_anterior_divisao_cv"
    " where empresa = {empresa}"
    " and revenda = {revenda}"
    " and ano = {ano}"
    " and conta = {conta}{divisoes}";

// The movement of one account over a range of months, one statement per way
// of reading it (MovimentoConta chooses). {conta} is the account quoted as it
// stands; {adicional} the host's extra condition; {exclusao...} the
// dealership-exclusion predicates; {divisoes} the division filter.

// 6.2: the monthly table.
constexpr char kMovimentoMensal[] =
    "select 'D' natureza, sum(saldo) total"
    " from ctb_salant_mes"
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   conta = {conta}"
    " and   ano_mes between {primeiro} and {ultimo}";

// 7.3: the division rows of the monthly table.
constexpr char kMovimentoMensalDivisao[] =
    "select 'D' natureza, sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa = {empresa}"
    " and   e.revenda = {revenda}"
    " and   e.conta = {conta}"
    " and   e.ano_mes between {primeiro} and {ultimo}{exclusao}{divisoes}";

// The division variants with an exclusion list: the entries joined to their
// division rows outside the excluded dealerships ({juncao}, following the
// journal table); only divided amounts count, as in the form below.
constexpr char kMovimentoJuncao[] =
    "select l.natureza, sum(coalesce(cld.VAL_DIVISAO, 0)) total"
    " from ctb_lancamento l{juncao}"
    " where l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes between {primeiro} and {ultimo}{exclusao}{adicional}{divisoes}"
    " group by l.natureza";

// 6.2 and 7.3 with an exclusion list: the entries joined to their division
// rows; only divided amounts count.
constexpr char kMovimentoExclusao[] =
    "select L.NATUREZA,"
    "        sum(coalesce(D.VAL_DIVISAO, 0)) as TOTAL  "
    " from CTB_LANCAMENTO L       "
    " left outer join CTB_LANCAMENTO_DIVIDIDO D          on D.EMPRESA = L.EMPRESA        "
    " and D.REVENDA = L.REVENDA        "
    " and D.ANO_MES = L.ANO_MES        "
    " and D.LANCAMENTO = L.LANCAMENTO "
    " where L.EMPRESA = {empresa}  "
    " and L.REVENDA = {revenda}  "
    " and L.CONTA = {conta}  "
    " and L.ANO_MES between {primeiro} and {ultimo}{adicional}{exclusao_lancamento}{exclusao_divisao}{divisoes}"
    " group by L.NATUREZA ";

// 6.2: the plain entries ({sufixo} "_cv": the second book's).
constexpr char kMovimento[] =
    "select l.natureza, sum(l.val_lancamento) total"
    " from ctb_lancamento{sufixo} l"
    " where l.empresa = {empresa}"
    " and   l.revenda = {revenda}"
    " and   l.conta = {conta}"
    " and   l.ano_mes between {primeiro} and {ultimo}{adicional}"
    " group by l.natureza";

// 7.3: the division rows of the entries.
constexpr char kMovimentoDivisao[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes between {primeiro} and {ultimo}{adicional}{divisoes}"
    " group by l.natureza";

// BuscaSaldoConta: the children of a synthetic account.
constexpr char kFilhas[] =
    "select conta, nivel"
    " from ctb_conta"
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   conta_superiora = {conta}";

}  // namespace

std::string TddmContabilidadeBD::FiltroDivisao(const FiltroSaldo& f) {
  std::string filtro;
  if (!f.revendas_divisao.empty())
    filtro += " and revenda_divisao in (" + f.revendas_divisao + ")";
  else if (f.revenda_divisao > -1)
    filtro += " and revenda_divisao = " + sql::Integer(f.revenda_divisao);
  if (!f.centros_custo.empty())
    filtro += " and centro_custo in (" + f.centros_custo + ")";
  else if (f.centro_custo > -1)
    filtro += " and centro_custo = " + sql::Integer(f.centro_custo);
  if (!f.fontes.empty())
    filtro += " and fonte in (" + f.fontes + ")";
  else if (f.fonte > -1)
    filtro += " and fonte = " + sql::Integer(f.fonte);
  if (!f.categorias.empty())
    filtro += " and categoria in (" + f.categorias + ")";
  else if (f.categoria > -1)
    filtro += " and categoria = " + sql::Integer(f.categoria);
  if (!f.secoes_oficina.empty())
    filtro += " and secao_oficina in (" + f.secoes_oficina + ")";
  else if (f.secao_oficina > -1)
    filtro += " and secao_oficina = " + sql::Integer(f.secao_oficina);
  if (!f.tipo_item.empty()) filtro += " and tipo_item = " + sql::QuotedAsIs(f.tipo_item);
  if (!f.modalidades.empty())
    filtro += " and modalidade_operacao in (" + f.modalidades + ")";
  else if (!f.modalidade.empty() && f.modalidade != kSped)
    filtro += " and modalidade_operacao = " + sql::QuotedAsIs(f.modalidade);
  return filtro;
}

// The movement of one account from `primeiro` to `ultimo` (months YYYYMM as
// text): step 6.2 without a division filter, step 7.3 with one, summed as in
// step 8.
double TddmContabilidadeBD::MovimentoConta(db::SQLDataSet& consulta, const FiltroSaldo& f,
                                           const std::string& primeiro, const std::string& ultimo,
                                           bool com_filtro) {
  const std::string divisoes = com_filtro ? FiltroDivisao(f) : std::string();
  auto adicional = [&f](const char* alias) {
    std::string condicao = TUtilContabil::SetAlias(alias, f.filtro_adicional);
    return condicao.empty() ? std::string() : " and " + condicao;
  };
  const std::string& lista = f.revendas_desconsiderar;
  const std::string empresa = sql::Integer(f.empresa);
  const std::string revenda = sql::Integer(f.revenda);
  const std::string conta = sql::QuotedAsIs(f.conta);
  // primeiro and ultimo enter as the caller's month text, as given.
  std::string sql;
  if (f.saldo_mensal && !com_filtro) {
    sql = fmt::format(kMovimentoMensal, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                      fmt::arg("conta", conta), fmt::arg("primeiro", primeiro),
                      fmt::arg("ultimo", ultimo));
  } else if (f.saldo_mensal) {
    sql = fmt::format(
        kMovimentoMensalDivisao, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
        fmt::arg("conta", conta), fmt::arg("primeiro", primeiro), fmt::arg("ultimo", ultimo),
        fmt::arg("exclusao", VerifRevendasDesconsiderar(lista, false, "e", "and", false)),
        fmt::arg("divisoes", divisoes));
  } else if (!lista.empty() && f.juncao_exclusao) {
    sql = fmt::format(
        kMovimentoJuncao, fmt::arg("juncao", IncluiRestricaoRevendasDesconsiderar(lista, "l")),
        fmt::arg("empresa", empresa), fmt::arg("revenda", revenda), fmt::arg("conta", conta),
        fmt::arg("primeiro", primeiro), fmt::arg("ultimo", ultimo),
        fmt::arg("exclusao", VerifRevendasDesconsiderar(lista, true, "l", "and", true)),
        fmt::arg("adicional", adicional("l")), fmt::arg("divisoes", divisoes));
  } else if (!lista.empty()) {
    sql = fmt::format(
        kMovimentoExclusao, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
        fmt::arg("conta", conta), fmt::arg("primeiro", primeiro), fmt::arg("ultimo", ultimo),
        fmt::arg("adicional", adicional("L")),
        fmt::arg("exclusao_lancamento", VerifRevendasDesconsiderar(lista, true, "L", "and", true)),
        fmt::arg("exclusao_divisao", VerifRevendasDesconsiderar(lista, false, "D", "and", true)),
        fmt::arg("divisoes", divisoes));
  } else if (!com_filtro) {
    sql = fmt::format(kMovimento, fmt::arg("sufixo", ""), fmt::arg("empresa", empresa),
                      fmt::arg("revenda", revenda), fmt::arg("conta", conta),
                      fmt::arg("primeiro", primeiro), fmt::arg("ultimo", ultimo),
                      fmt::arg("adicional", adicional("l")));
  } else {
    sql = fmt::format(kMovimentoDivisao, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                      fmt::arg("conta", conta), fmt::arg("primeiro", primeiro),
                      fmt::arg("ultimo", ultimo), fmt::arg("adicional", adicional("l")),
                      fmt::arg("divisoes", divisoes));
  }
  // The second book's plain entries join the entry forms without a division
  // filter; that part carries no dealership exclusion.
  if (f.modalidade == kSped && !f.saldo_mensal && !com_filtro)
    sql +=
        " union " + fmt::format(kMovimento, fmt::arg("sufixo", "_cv"), fmt::arg("empresa", empresa),
                                fmt::arg("revenda", revenda), fmt::arg("conta", conta),
                                fmt::arg("primeiro", primeiro), fmt::arg("ultimo", ultimo),
                                fmt::arg("adicional", adicional("l")));
  return SomaDebitosMenosCreditos(consulta, std::move(sql));
}

double TddmContabilidadeBD::BuscaSaldoContaAnalitica(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, bool SaldoMensal,
    const std::string& FiltroAdicional, const std::string& RevendasDesconsiderar) {
  (void)Reservado1;
  (void)Reservado2;
  return SaldoAnalitico(FiltroSaldo{Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina,
                                    RevendaDivisao, TipoItem, Modalidade, Conta, CentrosCusto,
                                    SaldoMensal, FiltroAdicional, RevendasDesconsiderar},
                        AnoMes);
}

// Steps 1 to 9 of the analytic balance; the numbers appear in the body.
double TddmContabilidadeBD::SaldoAnalitico(const FiltroSaldo& f, int32_t AnoMes) {
  std::string tabela, restricao_revenda;  // 1
  DefineTabelaSaldoAnterior(f.revenda, f.revendas_desconsiderar, f.modalidade, tabela,
                            restricao_revenda);
  const std::string mes = sql::Integer(AnoMes);  // 2
  const std::string ano = mes.substr(0, 4);
  const std::string ano_anterior = sql::Integer(std::stoll(ano) - 1);
  const std::string mes_do_ano = mes.size() >= 6 ? mes.substr(4, 2) : std::string();
  const std::string primeiro = ano + "01";
  const std::string ultimo =
      ano + fmt::format("{:02}", mes_do_ano.empty() ? 0 : std::stoi(mes_do_ano));
  auto consulta = NovaConsulta("sdsSaldoConta");  // 3
  const std::string divisoes = FiltroDivisao(f);  // 4
  const std::string exclusao =
      VerifRevendasDesconsiderar(f.revendas_desconsiderar, false, "", "and", false);
  const std::string exclusao_e =
      VerifRevendasDesconsiderar(f.revendas_desconsiderar, false, "e", "and", false);
  const std::string empresa = sql::Integer(f.empresa);
  const std::string revenda = sql::Integer(f.revenda);
  const std::string conta = sql::QuotedAsIs(f.conta);
  auto fallback = [&]() {  // 5
    return SaldoIntervaloMeses(f, static_cast<int32_t>(std::stoll(ano_anterior + "01")), AnoMes);
  };
  auto existe_saldo_ano = [&]() {  // 7.1
    return SomaPrimeiraColuna(
               *consulta,
               fmt::format(kExisteSaldoAnterior, fmt::arg("tabela", tabela),
                           fmt::arg("empresa", empresa),
                           fmt::arg("restricao_revenda", restricao_revenda),
                           fmt::arg("ano", ano_anterior), fmt::arg("exclusao", exclusao)))
        .tem_linhas;
  };
  auto saldo_divisoes = [&]() {  // 7.2
    return SomaPrimeiraColuna(
               *consulta, fmt::format(kSaldoAnteriorDivisao, fmt::arg("empresa", empresa),
                                      fmt::arg("revenda", revenda), fmt::arg("ano", ano_anterior),
                                      fmt::arg("conta", conta), fmt::arg("exclusao", exclusao_e),
                                      fmt::arg("divisoes", divisoes)))
        .valor;
  };
  const bool sped = f.modalidade == kSped;

  if (mes_do_ano == "00") {  // 9
    if (!divisoes.empty()) {
      if (!existe_saldo_ano()) return fallback();
      if (!sped) return saldo_divisoes();
      return SomaPrimeiraColuna(
                 *consulta, fmt::format(kSaldoAnteriorDivisaoCV, fmt::arg("empresa", empresa),
                                        fmt::arg("revenda", revenda), fmt::arg("ano", ano_anterior),
                                        fmt::arg("conta", conta), fmt::arg("divisoes", divisoes)))
          .valor;
    }
    Soma sa = SomaPrimeiraColuna(
        *consulta,
        fmt::format(kSaldoAnteriorAbertura, fmt::arg("tabela", tabela),
                    fmt::arg("empresa", empresa), fmt::arg("restricao_revenda", restricao_revenda),
                    fmt::arg("ano", ano_anterior), fmt::arg("conta", conta),
                    fmt::arg("exclusao", exclusao)));
    return sa.tem_linhas ? sa.valor : fallback();
  }

  // 6 and 7 look at the arguments, 9 at the division filter's text: an integer filter such as -2
  // that adds no condition still counts as a filter here. Intended.
  const bool com_filtro = f.ComFiltro();
  double sa = 0;
  if (!com_filtro) {  // 6.1
    Soma soma = SomaPrimeiraColuna(
        *consulta,
        fmt::format(kSaldoAnterior, fmt::arg("tabela", tabela), fmt::arg("empresa", empresa),
                    fmt::arg("restricao_revenda", restricao_revenda), fmt::arg("conta", conta),
                    fmt::arg("ano", ano_anterior), fmt::arg("exclusao", exclusao)));
    if (!soma.tem_linhas) return fallback();
    sa = soma.valor;
  } else {  // 7.1, 7.2
    if (!existe_saldo_ano()) return fallback();
    sa = saldo_divisoes();
  }
  return sa + MovimentoConta(*consulta, f, primeiro, ultimo, com_filtro);  // 6.2, 7.3, 8
}

double TddmContabilidadeBD::BuscaSaldoAntContaAnaliticaPeriodo(
    int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, bool SaldoMensal,
    const std::string& FiltroAdicional, const std::string& RevendasDesconsiderar) {
  return SaldoIntervaloMeses(
      FiltroSaldo{Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                  TipoItem, Modalidade, Conta, CentrosCusto, SaldoMensal, FiltroAdicional,
                  RevendasDesconsiderar},
      AnoMesInicial, AnoMesFinal);
}

// The balance from AnoMesInicial to AnoMesFinal: the carried-forward balance
// of the year before AnoMesInicial's year, read as it comes (no row counts as
// zero: there is no further fallback), plus the movement of the range, with
// the division, exclusion and second-book conventions of the analytic
// balance. A month 00 as the last month ends the range at the previous
// December.
double TddmContabilidadeBD::SaldoIntervaloMeses(const FiltroSaldo& f, int32_t AnoMesInicial,
                                                int32_t AnoMesFinal) {
  std::string tabela, restricao_revenda;
  DefineTabelaSaldoAnterior(f.revenda, f.revendas_desconsiderar, f.modalidade, tabela,
                            restricao_revenda);
  const std::string inicial = sql::Integer(AnoMesInicial);
  const std::string ano_anterior = sql::Integer(std::stoll(inicial.substr(0, 4)) - 1);
  const std::string empresa = sql::Integer(f.empresa);
  const std::string revenda = sql::Integer(f.revenda);
  const std::string conta = sql::QuotedAsIs(f.conta);
  auto consulta = NovaConsulta("sdsSaldoPeriodo");
  const bool com_filtro = f.ComFiltro();
  double sa;
  if (!com_filtro)
    sa = SomaPrimeiraColuna(
             *consulta,
             fmt::format(kSaldoAnterior, fmt::arg("tabela", tabela), fmt::arg("empresa", empresa),
                         fmt::arg("restricao_revenda", restricao_revenda), fmt::arg("conta", conta),
                         fmt::arg("ano", ano_anterior),
                         fmt::arg("exclusao", VerifRevendasDesconsiderar(f.revendas_desconsiderar,
                                                                         false, "", "and", false))))
             .valor;
  else
    sa = SomaPrimeiraColuna(
             *consulta,
             fmt::format(kSaldoAnteriorDivisao, fmt::arg("empresa", empresa),
                         fmt::arg("revenda", revenda), fmt::arg("ano", ano_anterior),
                         fmt::arg("conta", conta),
                         fmt::arg("exclusao", VerifRevendasDesconsiderar(f.revendas_desconsiderar,
                                                                         false, "e", "and", false)),
                         fmt::arg("divisoes", FiltroDivisao(f))))
             .valor;
  return sa + MovimentoConta(*consulta, f, inicial, sql::Integer(AnoMesFinal), com_filtro);
}

// 1. An analytic account overwrites Saldo. 2. A synthetic account adds the
// balances of its analytic children and recurses into the others, all into
// the same accumulator, which is never cleared here: callers start it at
// zero and the recursion relies on that. 3. The result is Saldo.
double TddmContabilidadeBD::CaminhaPlano(
    int32_t Empresa, int32_t Revenda, const std::string& Conta, const std::string& Nivel,
    double& Saldo, const std::function<double(const std::string&)>& analitica) {
  if (Nivel == "A") {  // 1
    Saldo = analitica(Conta);
    return Saldo;
  }
  auto consulta = NovaConsulta("sdsBuscaFilhas");  // 2
  consulta->SetCommandText(fmt::format(kFilhas, fmt::arg("empresa", sql::Integer(Empresa)),
                                       fmt::arg("revenda", sql::Integer(Revenda)),
                                       fmt::arg("conta", sql::QuotedAsIs(Conta))));
  consulta->Open();
  // The children are read whole before the recursion runs its own queries.
  const db::ResultSet filhas = consulta->Rows();
  consulta->Close();
  for (const auto& linha : filhas.rows) {
    const std::string conta = linha.at(0).AsString();
    const std::string nivel = linha.at(1).AsString();
    if (nivel == "A")
      Saldo += analitica(conta);
    else
      CaminhaPlano(Empresa, Revenda, conta, nivel, Saldo, analitica);
  }
  return Saldo;  // 3
}

double TddmContabilidadeBD::BuscaSaldoConta(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& Nivel, const std::string& CentrosCusto,
    double& Saldo, bool Geral, bool SaldoMensal, const std::string& FiltroAdicional,
    const std::string& RevendasDesconsiderar) {
  (void)Reservado1;
  (void)Reservado2;
  return CaminhaPlano(Empresa, Revenda, Conta, Nivel, Saldo, [&](const std::string& conta) {
    const FiltroSaldo f{Empresa,         Revenda,
                        CentroCusto,     Fonte,
                        Categoria,       SecaoOficina,
                        RevendaDivisao,  TipoItem,
                        Modalidade,      conta,
                        CentrosCusto,    SaldoMensal,
                        FiltroAdicional, RevendasDesconsiderar};
    return Geral ? SaldoAnaliticoGeral(f, AnoMes) : SaldoAnalitico(f, AnoMes);
  });
}

// The division variants: every dimension but the division dealership and
// the item type may come as a list, and the exclusion list is applied
// through the join of the entries to their division rows.
FiltroSaldo TddmContabilidadeBD::FiltroDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t CentroCusto, int32_t Fonte, int32_t Categoria,
    int32_t SecaoOficina, int32_t RevendaDivisao, const std::string& TipoItem,
    const std::string& Modalidade, const std::string& Conta, const std::string& CentrosCusto,
    const std::string& Fontes, const std::string& Categorias, const std::string& SecoesOficina,
    const std::string& Modalidades, const std::string& FiltroAdicional, bool SaldoMensal,
    const std::string& RevendasDesconsiderar) {
  FiltroSaldo f{Empresa,         Revenda,
                CentroCusto,     Fonte,
                Categoria,       SecaoOficina,
                RevendaDivisao,  TipoItem,
                Modalidade,      Conta,
                CentrosCusto,    SaldoMensal,
                FiltroAdicional, RevendasDesconsiderar};
  f.fontes = Fontes;
  f.categorias = Categorias;
  f.secoes_oficina = SecoesOficina;
  f.modalidades = Modalidades;
  f.juncao_exclusao = true;
  return f;
}

double TddmContabilidadeBD::BuscaSaldoContaAnaliticaDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
    const std::string& Categorias, const std::string& SecoesOficina, const std::string& Modalidades,
    const std::string& FiltroAdicional, bool SaldoMensal,
    const std::string& RevendasDesconsiderar) {
  (void)Reservado1;
  (void)Reservado2;
  return SaldoAnalitico(
      FiltroDivisoes(Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                     TipoItem, Modalidade, Conta, CentrosCusto, Fontes, Categorias, SecoesOficina,
                     Modalidades, FiltroAdicional, SaldoMensal, RevendasDesconsiderar),
      AnoMes);
}

double TddmContabilidadeBD::BuscaSaldoContaAnaliticaGeralDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
    const std::string& Categorias, const std::string& SecoesOficina, const std::string& Modalidades,
    const std::string& FiltroAdicional, bool SaldoMensal,
    const std::string& RevendasDesconsiderar) {
  (void)Reservado1;
  (void)Reservado2;
  return SaldoAnaliticoGeral(
      FiltroDivisoes(Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                     TipoItem, Modalidade, Conta, CentrosCusto, Fontes, Categorias, SecoesOficina,
                     Modalidades, FiltroAdicional, SaldoMensal, RevendasDesconsiderar),
      AnoMes);
}

// The division variants' balance over a range of months. The analytic
// division variants fall back through SaldoIntervaloMeses with their whole filter,
// modality list included.
double TddmContabilidadeBD::BuscaSaldoAntContaAnaliticaPeriodoDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
    const std::string& Categorias, const std::string& SecoesOficina, bool SaldoMensal,
    const std::string& FiltroAdicional, const std::string& RevendasDesconsiderar) {
  return SaldoIntervaloMeses(
      FiltroDivisoes(Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                     TipoItem, Modalidade, Conta, CentrosCusto, Fontes, Categorias, SecoesOficina,
                     std::string(), FiltroAdicional, SaldoMensal, RevendasDesconsiderar),
      AnoMesInicial, AnoMesFinal);
}

double TddmContabilidadeBD::BuscaSaldoContaDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& Nivel, const std::string& CentrosCusto,
    const std::string& Fontes, const std::string& Categorias, const std::string& SecoesOficina,
    const std::string& Modalidades, const std::string& FiltroAdicional, double& Saldo, bool Geral,
    bool SaldoMensal, const std::string& RevendasDesconsiderar) {
  (void)Reservado1;
  (void)Reservado2;
  return CaminhaPlano(Empresa, Revenda, Conta, Nivel, Saldo, [&](const std::string& conta) {
    const FiltroSaldo f = FiltroDivisoes(
        Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao, TipoItem,
        Modalidade, conta, CentrosCusto, Fontes, Categorias, SecoesOficina, Modalidades,
        FiltroAdicional, SaldoMensal, RevendasDesconsiderar);
    return Geral ? SaldoAnaliticoGeral(f, AnoMes) : SaldoAnalitico(f, AnoMes);
  });
}

}  // namespace kvc
