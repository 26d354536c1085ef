// The general form of the analytic balance: the movement of every account of
// the company, dealership and period, and their carried-forward balances, are
// read once, grouped by account and division columns, into the module's
// in-memory caches; each account is then answered by filtering them on its
// code (and the division filter). A chart walk therefore costs one grouped
// statement per set plus in-memory work. Results equal those of
// BuscaSaldoContaAnalitica for any data.
//
// Cache keys: a set is reloaded whenever anything that shapes its statement
// changes (company, dealership, months, the statement form chosen by the
// filters, the monthly-table flag, the second book, the exclusion list and
// the extra condition); the division values themselves are applied in memory
// and never force a reload. Postings made after a load are not seen until the
// key changes, like every cache of the module.
#include <cmath>
#include <optional>

#include <fmt/format.h>

#include "accounting/balances/leitura_saldo.h"
#include "accounting/balances/saldo_filtros.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kSped[] = "SPED";
constexpr char kIndice[] = "indice";
constexpr char kCamposIndice[] = "conta;revenda_divisao";

// The host's extra condition on the journal alias.
constexpr char kAdicional[] = " and {condicao}";

// Every statement below reads all the accounts of the company, dealership
// and period, the movement ones through the :EMPRESA, :REVENDA, :PERINI and
// :PERFIN parameters. {adicional} is the host's extra condition;
// {exclusao...} the dealership-exclusion predicates.

// Movement of every account: the plain entries, by nature and account
// ({sufixo} "_cv": the second book's).
constexpr char kGeralMovimento[] =
    "select l.natureza, l.conta, sum(l.val_lancamento) total"
    " from ctb_lancamento{sufixo} l"
    " where l.empresa = :EMPRESA"
    " and   l.revenda = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN{adicional}"
    " group by l.natureza, l.conta";

// Movement of every account's division rows.
constexpr char kGeralMovimentoDivisao[] =
    "select l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria, d.secao_oficina, d.tipo_item, d.modalidade_operacao,"
    " sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = :EMPRESA"
    " and l.revenda = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN{adicional}"
    " group by l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria, d.secao_oficina, d.tipo_item, d.modalidade_operacao";

// Movement with an exclusion list: the entries joined to their division rows.
constexpr char kGeralMovimentoExclusao[] =
    "select L.NATUREZA, L.CONTA, D.REVENDA_DIVISAO, D.CENTRO_CUSTO, D.FONTE, D.CATEGORIA, D.SECAO_OFICINA, D.TIPO_ITEM, D.MODALIDADE_OPERACAO,"
    "        sum(coalesce(D.VAL_DIVISAO, 0)) as TOTAL  "
    " from CTB_LANCAMENTO L       "
    " left outer join CTB_LANCAMENTO_DIVIDIDO D          on D.EMPRESA = L.EMPRESA        "
    " and D.REVENDA = L.REVENDA        "
    " and D.ANO_MES = L.ANO_MES        "
    " and D.LANCAMENTO = L.LANCAMENTO "
    " where L.EMPRESA = :EMPRESA  "
    " and L.REVENDA = :REVENDA  "
    " and L.ANO_MES between :PERINI and :PERFIN{adicional}{exclusao_lancamento}{exclusao_divisao}"
    " group by L.NATUREZA, L.CONTA, D.REVENDA_DIVISAO, D.CENTRO_CUSTO, D.FONTE, D.CATEGORIA, D.SECAO_OFICINA, D.TIPO_ITEM, D.MODALIDADE_OPERACAO";

// Movement of the division variants with an exclusion list: the entries
// joined to their division rows outside the excluded dealerships ({juncao}).
constexpr char kGeralMovimentoJuncao[] =
    "select l.natureza, l.conta, cld.REVENDA_DIVISAO, cld.CENTRO_CUSTO, cld.FONTE, cld.CATEGORIA, cld.SECAO_OFICINA, cld.TIPO_ITEM, cld.MODALIDADE_OPERACAO,"
    " sum(coalesce(cld.VAL_DIVISAO, 0)) total"
    " from ctb_lancamento l{juncao}"
    " where l.empresa = :EMPRESA"
    " and l.revenda = :REVENDA"
    " and l.ano_mes between :PERINI and :PERFIN{exclusao}{adicional}"
    " group by l.natureza, l.conta, cld.REVENDA_DIVISAO, cld.CENTRO_CUSTO, cld.FONTE, cld.CATEGORIA, cld.SECAO_OFICINA, cld.TIPO_ITEM, cld.MODALIDADE_OPERACAO";

// Movement from the monthly tables.
constexpr char kGeralMensal[] =
    "select 'D' natureza, conta, sum(saldo) total"
    " from ctb_salant_mes"
    " where empresa = :EMPRESA"
    " and   revenda = :REVENDA"
    " and   ano_mes between :PERINI and :PERFIN"
    " group by conta";
constexpr char kGeralMensalDivisao[] =
    "select 'D' natureza, e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, e.tipo_item, e.modalidade_operacao,"
    " sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa = :EMPRESA"
    " and   e.revenda = :REVENDA"
    " and   e.ano_mes between :PERINI and :PERFIN{exclusao}"
    " group by e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, e.tipo_item, e.modalidade_operacao";

// Carried-forward balances of every account, in the table and with the
// dealership restriction that DefineTabelaSaldoAnterior chose ({tabela},
// {restricao_revenda}).
constexpr char kGeralSaldoAnterior[] =
    "select conta, sum(saldo) saldo"
    " from {tabela}"
    " where empresa = {empresa}{restricao_revenda}"
    "   and ano = {ano}{exclusao}"
    " group by conta";
// The division rows' ({sufixo} "_cv": the second book's table).
constexpr char kGeralSaldoDivisao[] =
    "select e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, e.tipo_item, e.modalidade_operacao,"
    " sum(e.saldo) saldo  "
    " from ctb_saldo_anterior_divisao{sufixo} e "
    " where e.empresa = {empresa}"
    " and e.revenda = {revenda}"
    " and e.ano = {ano}{exclusao}"
    " group by e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, e.tipo_item, e.modalidade_operacao";

// Which set each cache slot holds.
constexpr size_t kCacheMovimento = 0;
constexpr size_t kCacheSaldoAnterior = 1;

// The totals of one book by nature, and whether each nature had rows.
struct Naturezas {
  double debito = 0;
  double credito = 0;
  bool tem_debito = false;
  bool tem_credito = false;
};

}  // namespace

// Loads the rows of every statement of `cargas` into a cache slot whose key
// differs. The set has fixed fields, whatever each statement returns: PLANO
// and LIVRO mark where a row came from, the division columns are null where a
// statement has none, and VALOR holds its TOTAL or SALDO. Indexed on account
// and division dealership.
db::ClientDataSet& TddmContabilidadeBD::CarregaCacheGeral(size_t slot, const std::string& chave,
                                                          const std::vector<CargaGeral>& cargas,
                                                          int32_t empresa, int32_t revenda,
                                                          int32_t perini, int32_t perfin) {
  std::string& chave_atual = slot == kCacheMovimento ? texto_cache_ : chave_saldo_geral_;
  if (caches_[slot] && chave_atual == chave) return *caches_[slot];
  caches_[slot].reset();
  chave_atual.clear();
  using db::FieldType;
  static const std::vector<db::FieldDef> kCampos = {{"PLANO", FieldType::kInteger},
                                                    {"LIVRO", FieldType::kString},
                                                    {"NATUREZA", FieldType::kString},
                                                    {"CONTA", FieldType::kString},
                                                    {"REVENDA_DIVISAO", FieldType::kInteger},
                                                    {"CENTRO_CUSTO", FieldType::kInteger},
                                                    {"FONTE", FieldType::kInteger},
                                                    {"CATEGORIA", FieldType::kInteger},
                                                    {"SECAO_OFICINA", FieldType::kInteger},
                                                    {"TIPO_ITEM", FieldType::kString},
                                                    {"MODALIDADE_OPERACAO", FieldType::kString},
                                                    {"VALOR", FieldType::kFloat}};
  auto cache = std::make_unique<db::ClientDataSet>(slot == kCacheMovimento ? "cdsMovimentoGeral"
                                                                           : "cdsSaldoGeral");
  cache->DefineFields(kCampos);
  auto consulta = NovaConsulta("sdsSaldoGeral");
  for (const CargaGeral& carga : cargas) {
    consulta->Close();
    consulta->SetCommandText(carga.sql);
    for (auto [nome, valor] : {std::pair{"EMPRESA", empresa}, std::pair{"REVENDA", revenda},
                               std::pair{"PERINI", perini}, std::pair{"PERFIN", perfin}})
      if (db::Param* parametro = consulta->GetParams().Find(nome)) parametro->value = valor;
    consulta->Open();
    const db::ResultSet& resultado = consulta->Rows();
    std::vector<std::optional<size_t>> origem;
    for (size_t i = 2; i + 1 < kCampos.size(); ++i)
      origem.push_back(resultado.FindColumn(kCampos[i].name));
    std::optional<size_t> valor = resultado.FindColumn("TOTAL");
    if (!valor) valor = resultado.FindColumn("SALDO");
    for (const auto& linha : resultado.rows) {
      std::vector<db::Value> registro = {db::Value(carga.plano), db::Value(carga.livro)};
      for (const auto& coluna : origem) registro.push_back(coluna ? linha[*coluna] : db::Value());
      registro.push_back(valor ? linha[*valor] : db::Value());
      cache->AppendRecord(registro);
    }
    consulta->Close();
  }
  cache->AddIndex(kIndice, kCamposIndice);
  cache->SetIndexName(kIndice);
  caches_[slot] = std::move(cache);
  chave_atual = chave;
  return *caches_[slot];
}

double TddmContabilidadeBD::BuscaSaldoContaAnaliticaGeral(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, bool SaldoMensal,
    const std::string& FiltroAdicional, const std::string& RevendasDesconsiderar) {
  (void)Reservado1;
  (void)Reservado2;
  return SaldoAnaliticoGeral(
      FiltroSaldo{Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                  TipoItem, Modalidade, Conta, CentrosCusto, SaldoMensal, FiltroAdicional,
                  RevendasDesconsiderar},
      AnoMes);
}

double TddmContabilidadeBD::SaldoAnaliticoGeral(const FiltroSaldo& f, int32_t AnoMes) {
  std::string tabela, restricao_revenda;
  DefineTabelaSaldoAnterior(f.revenda, f.revendas_desconsiderar, f.modalidade, tabela,
                            restricao_revenda);
  const std::string ano_mes = sql::Integer(AnoMes);
  const std::string ano = ano_mes.substr(0, 4);
  const std::string ano_anterior = sql::Integer(std::stoll(ano) - 1);
  const std::string mes = ano_mes.size() >= 6 ? ano_mes.substr(4, 2) : std::string();
  const int32_t perini = static_cast<int32_t>(std::stoll(ano + "01"));
  const int32_t perfin = static_cast<int32_t>(
      std::stoll(ano + fmt::format("{:02}", mes.empty() ? 0 : std::stoi(mes))));
  const bool sped = f.modalidade == kSped;
  const std::string divisoes = FiltroDivisao(f);
  const bool com_filtro = f.ComFiltro();
  const std::string empresa = sql::Integer(f.empresa);
  const std::string revenda = sql::Integer(f.revenda);
  const std::string filtro_conta = "conta = " + sql::Quoted(f.conta);
  auto fallback = [&]() {
    return SaldoIntervaloMeses(f, static_cast<int32_t>(std::stoll(ano_anterior + "01")), AnoMes);
  };

  // Carried-forward balances: the plain set of the chosen table, and the
  // division set (its second-book table for an opening balance in "SPED")
  // when the balance is taken by division.
  const bool divisao_cv = mes == "00" && sped && !divisoes.empty();
  const bool usa_divisao = mes == "00" ? !divisoes.empty() : com_filtro;
  const std::string exclusao =
      VerifRevendasDesconsiderar(f.revendas_desconsiderar, false, "", "and", false);
  const std::string exclusao_divisoes =
      VerifRevendasDesconsiderar(f.revendas_desconsiderar, false, "e", "and", false);
  std::vector<CargaGeral> cargas_saldo = {
      {fmt::format(kGeralSaldoAnterior, fmt::arg("tabela", tabela), fmt::arg("empresa", empresa),
                   fmt::arg("restricao_revenda", restricao_revenda), fmt::arg("ano", ano_anterior),
                   fmt::arg("exclusao", exclusao)),
       1, "P"}};
  if (usa_divisao)
    cargas_saldo.push_back(
        {fmt::format(kGeralSaldoDivisao, fmt::arg("sufixo", divisao_cv ? "_cv" : ""),
                     fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                     fmt::arg("ano", ano_anterior),
                     fmt::arg("exclusao", divisao_cv ? std::string() : exclusao_divisoes)),
         0, "P"});
  db::ClientDataSet& saldos = CarregaCacheGeral(
      kCacheSaldoAnterior,
      fmt::format("{}|{}|{}|{}|{}|{}", empresa, revenda, ano_anterior, tabela,
                  f.revendas_desconsiderar, usa_divisao ? (divisao_cv ? "CV" : "D") : "P"),
      cargas_saldo, f.empresa, f.revenda, perini, perfin);

  // Plain rows (PLANO 1) say whether the account, or with a division filter
  // the company, has carried-forward rows for the year; division rows
  // (PLANO 0) give the balance under the filter.
  double saldo_anterior = 0;
  if (!usa_divisao) {
    auto [valor, linhas] = SomaFiltrada(saldos, filtro_conta + " and plano = 1", "VALOR");
    if (linhas == 0) return fallback();
    saldo_anterior = valor;
  } else {
    if (SomaFiltrada(saldos, "plano = 1", "VALOR").second == 0) return fallback();
    saldo_anterior =
        SomaFiltrada(saldos, filtro_conta + " and plano = 0" + divisoes, "VALOR").first;
  }
  if (mes == "00") return saldo_anterior;

  // Movement of the period, in the form the plain balance would choose.
  const std::string& lista = f.revendas_desconsiderar;
  auto extra = [&](const char* alias) {
    std::string condicao = TUtilContabil::SetAlias(alias, f.filtro_adicional);
    return condicao.empty() ? std::string()
                            : fmt::format(kAdicional, fmt::arg("condicao", condicao));
  };
  auto lancamentos = [&](const char* sufixo) {
    return fmt::format(kGeralMovimento, fmt::arg("sufixo", sufixo),
                       fmt::arg("adicional", extra("l")));
  };
  std::vector<CargaGeral> cargas;
  std::string forma;
  if (f.saldo_mensal && !com_filtro) {
    forma = "M";
    cargas = {{kGeralMensal, 1, "P"}};
  } else if (f.saldo_mensal) {
    forma = "MD";
    cargas = {{fmt::format(kGeralMensalDivisao, fmt::arg("exclusao", exclusao_divisoes)), 1, "P"}};
  } else if (!lista.empty() && f.juncao_exclusao) {
    forma = "X";
    cargas = {{fmt::format(
                   kGeralMovimentoJuncao,
                   fmt::arg("juncao", IncluiRestricaoRevendasDesconsiderar(lista, "l")),
                   fmt::arg("exclusao", VerifRevendasDesconsiderar(lista, true, "l", "and", true)),
                   fmt::arg("adicional", extra("l"))),
               1, "P"}};
  } else if (!lista.empty()) {
    forma = "X";
    cargas = {{fmt::format(kGeralMovimentoExclusao, fmt::arg("adicional", extra("L")),
                           fmt::arg("exclusao_lancamento",
                                    VerifRevendasDesconsiderar(lista, true, "L", "and", true)),
                           fmt::arg("exclusao_divisao",
                                    VerifRevendasDesconsiderar(lista, false, "D", "and", true))),
               1, "P"}};
  } else if (!com_filtro) {
    forma = "P";
    cargas = {{lancamentos(""), 1, "P"}};
  } else {
    forma = "D";
    cargas = {{fmt::format(kGeralMovimentoDivisao, fmt::arg("adicional", extra("l"))), 1, "P"}};
  }
  const bool com_cv = sped && !f.saldo_mensal && !com_filtro;
  if (com_cv) cargas.push_back({lancamentos("_cv"), 1, "V"});
  db::ClientDataSet& movimento = CarregaCacheGeral(
      kCacheMovimento,
      fmt::format("{}|{}|{}|{}|{}{}|{}|{}|{}", empresa, revenda, perini, perfin, forma,
                  f.juncao_exclusao ? "J" : "", com_cv, lista, f.filtro_adicional),
      cargas, f.empresa, f.revenda, perini, perfin);

  // Per book, the totals by nature. The division filter applies where the
  // statement had it: the division forms, and the exclusion join when a
  // division filter is in force.
  const bool aplica_divisoes = forma == "D" || forma == "MD" || (forma == "X" && com_filtro);
  auto naturezas = [&](const char* livro) {
    Naturezas totais;
    const std::string base = filtro_conta + " and livro = " + sql::QuotedAsIs(livro) +
                             (aplica_divisoes ? divisoes : std::string());
    auto [debito, linhas_d] = SomaFiltrada(movimento, base + " and natureza = 'D'", "VALOR");
    auto [credito, linhas_c] = SomaFiltrada(movimento, base + " and natureza = 'C'", "VALOR");
    totais.debito = debito;
    totais.tem_debito = linhas_d > 0;
    totais.credito = credito;
    totais.tem_credito = linhas_c > 0;
    return totais;
  };
  const Naturezas principal = naturezas("P");
  double debitos = principal.debito, creditos = principal.credito;
  if (com_cv) {
    // The two books meet as a union of (nature, total) rows: a row that both
    // books hold counts once. Totals are compared to the half cent, since
    // both are sums of amounts in cents.
    auto iguais = [](double a, double b) { return std::fabs(a - b) < 0.005; };
    const Naturezas cv = naturezas("V");
    if (cv.tem_debito && !(principal.tem_debito && iguais(principal.debito, cv.debito)))
      debitos += cv.debito;
    if (cv.tem_credito && !(principal.tem_credito && iguais(principal.credito, cv.credito)))
      creditos += cv.credito;
  }
  return saldo_anterior + debitos - creditos;
}

}  // namespace kvc
