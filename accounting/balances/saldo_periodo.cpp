// The movement of an analytic account's division rows between two days of one
// month (BuscaSaldoContaAnaliticaPeriodo), answered from the module's cache of
// the grouped movement of the month or by its own statements, the chart
// walker over it (BuscaSaldoContaPeriodo), and their division variants with
// list-valued filters.
#include <array>
#include <functional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "accounting/balances/leitura_saldo.h"
#include "accounting/balances/saldo_filtros.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

constexpr char kSped[] = "SPED";

// The cache slot of the movement set, and its index.
constexpr size_t kCacheMovimentoDias = 2;
constexpr char kIndice[] = "indice";
constexpr char kCamposIndice[] = "conta;revenda_divisao;centro_custo;natureza";

// 2: the grouped movement of every account of the company, dealership, month
// and days ({dia_inicial} to {dia_final}); {exclusao}: the dealership-exclusion
// predicates.
constexpr char kAgrupado[] =
    "select l.natureza, d.revenda_divisao, d.revenda_origem, d.centro_custo,"
    "        d.fonte, d.categoria, d.secao_oficina,"
    "        d.tipo_item, d.modalidade_operacao, l.conta,"
    "        sum(coalesce(d.val_divisao, 0)) total "
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.ano_mes = {ano_mes}"
    " and l.dia between {dia_inicial} and {dia_final}{exclusao}"
    " group by l.natureza, d.revenda_divisao, d.revenda_origem, d.centro_custo,"
    "        d.fonte, d.categoria, d.secao_oficina,"
    "        d.tipo_item, d.modalidade_operacao, l.conta";

// 4: the filter of the movement set for one account and nature.
constexpr char kFiltroConta[] = "conta = ";

// 5 and 6: the division rows of one account, in the main book and in the
// second one; the nature and the division filter follow ({restricoes}).
constexpr char kMovimento[] =
    " select sum(coalesce(d.val_divisao, 0)) total "
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes = {ano_mes}"
    " and l.dia between {dia_inicial} and {dia_final}{exclusao}{restricoes}";
constexpr char kMovimentoCV[] =
    " select sum(coalesce(d.val_divisao, 0)) total "
    " from ctb_lancamento_dividido_cv d, ctb_lancamento_cv l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes = {ano_mes}"
    " and l.dia between {dia_inicial} and {dia_final}{restricoes}";

// 4, 5 and 6: the nature of the rows summed.
constexpr char kDebito[] = " and natureza = 'D'";
constexpr char kCredito[] = " and natureza = 'C'";

// BuscaSaldoContaPeriodo: the chart, and the filter of an account's children.
constexpr char kPlano[] =
    " select EMPRESA, REVENDA, CONTA_SUPERIORA,         CONTA, NIVEL  from CTB_CONTA order by "
    "EMPRESA, REVENDA, CONTA_SUPERIORA";
constexpr char kFilhas[] =
    "EMPRESA = {empresa}"
    " and   REVENDA = {revenda}"
    " and   CONTA_SUPERIORA = {conta}";

}  // namespace

double TddmContabilidadeBD::BuscaSaldoContaAnaliticaPeriodo(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, bool UsaCache,
    const std::string& RevendasDesconsiderar) {
  auto consulta = NovaConsulta("sdsSaldoContaPeriodo");  // 1
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  const std::string ano_mes = sql::Integer(AnoMes);
  const std::string dia_inicial = sql::Integer(DiaInicial);
  const std::string dia_final = sql::Integer(DiaFinal);
  const std::string conta = sql::QuotedAsIs(Conta);
  const std::string& lista = RevendasDesconsiderar;

  // 2. The exclusion list is not part of the key: a later call with another
  // list is answered from the set loaded with the first one. Intended. A load
  // that fails leaves no set and no key, so that the next call loads again.
  const std::array<int32_t, 5> chave{Empresa, Revenda, AnoMes, DiaInicial, DiaFinal};
  if (UsaCache && (chaves_cache_ != chave || !caches_[kCacheMovimentoDias])) {
    chaves_cache_ = chave;
    caches_[kCacheMovimentoDias].reset();
    try {
      consulta->SetCommandText(fmt::format(
          kAgrupado, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
          fmt::arg("ano_mes", ano_mes), fmt::arg("dia_inicial", dia_inicial),
          fmt::arg("dia_final", dia_final),
          fmt::arg("exclusao", VerifRevendasDesconsiderar(lista, true, "L", "and", true) +
                                   VerifRevendasDesconsiderar(lista, false, "D", "and", true))));
      consulta->Open();
      std::unique_ptr<db::ClientDataSet> movimento = SQLDatasetToClientDataSet(*consulta);
      consulta->Close();
      movimento->AddIndex(kIndice, kCamposIndice);
      movimento->SetIndexName(kIndice);
      caches_[kCacheMovimentoDias] = std::move(movimento);
    } catch (...) {
      chaves_cache_ = {-1, -1, -1, -1, -1};
      throw;
    }
  }

  // 3. The division filter, the modality left out when it is "SPED".
  const std::string divisoes = FiltroDivisao(FiltroSaldo{
      Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao, TipoItem,
      Modalidade, Conta, CentrosCusto, false, std::string(), RevendasDesconsiderar});

  double debitos = 0, creditos = 0;
  if (UsaCache) {  // 4
    db::ClientDataSet& movimento = *caches_[kCacheMovimentoDias];
    const std::string filtro = kFiltroConta + conta + divisoes;
    debitos += SomaFiltrada(movimento, filtro + kDebito, "TOTAL").first;
    creditos += SomaFiltrada(movimento, filtro + kCredito, "TOTAL").first;
  } else {  // 5
    const std::string exclusao = VerifRevendasDesconsiderar(lista, true, "l", "and", true) +
                                 VerifRevendasDesconsiderar(lista, false, "d", "and", true);
    auto movimento = [&](const char* natureza) {
      return fmt::format(kMovimento, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                         fmt::arg("conta", conta), fmt::arg("ano_mes", ano_mes),
                         fmt::arg("dia_inicial", dia_inicial), fmt::arg("dia_final", dia_final),
                         fmt::arg("exclusao", exclusao),
                         fmt::arg("restricoes", natureza + divisoes));
    };
    debitos += PrimeiroValor(*consulta, movimento(kDebito), "TOTAL").AsFloat();
    creditos += PrimeiroValor(*consulta, movimento(kCredito), "TOTAL").AsFloat();
  }

  // 6. The second book, cached or not: only the division dealership, the
  // cost centres and the item type narrow it (source, category and workshop
  // section are left out on purpose), and no dealership is excluded.
  if (Modalidade == kSped) {
    const std::string divisoes_cv = FiltroDivisao(
        FiltroSaldo{Empresa, Revenda, CentroCusto, -1, -1, -1, RevendaDivisao, TipoItem,
                    std::string(), Conta, CentrosCusto, false, std::string(), std::string()});
    auto movimento_cv = [&](const char* natureza) {
      return fmt::format(kMovimentoCV, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                         fmt::arg("conta", conta), fmt::arg("ano_mes", ano_mes),
                         fmt::arg("dia_inicial", dia_inicial), fmt::arg("dia_final", dia_final),
                         fmt::arg("restricoes", natureza + divisoes_cv));
    };
    debitos += PrimeiroValor(*consulta, movimento_cv(kDebito), "TOTAL").AsFloat();
    creditos += PrimeiroValor(*consulta, movimento_cv(kCredito), "TOTAL").AsFloat();
  }
  return debitos - creditos;  // 7
}

// 1. An analytic account overwrites Saldo. 2. A synthetic account adds the
// movement of its analytic children and recurses into the others, all into
// the same accumulator, which callers start at zero. The chart is read once
// per call into an in-memory set; the children of each account are taken
// from it by a filter and copied out before the recursion changes that
// filter. 3. The result is Saldo.
double TddmContabilidadeBD::BuscaSaldoContaPeriodo(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& Nivel, const std::string& CentrosCusto,
    double& Saldo, bool UsaCache, const std::string& RevendasDesconsiderar) {
  auto analitica = [&](const std::string& conta) {
    return BuscaSaldoContaAnaliticaPeriodo(
        Empresa, Revenda, AnoMes, DiaInicial, DiaFinal, CentroCusto, Fonte, Categoria, SecaoOficina,
        RevendaDivisao, TipoItem, Modalidade, conta, CentrosCusto, UsaCache, RevendasDesconsiderar);
  };
  if (Nivel == "A") {  // 1
    Saldo = analitica(Conta);
    return Saldo;
  }

  auto consulta = NovaConsulta("sdsPlanoContas");  // 2
  consulta->SetCommandText(kPlano);
  consulta->Open();
  const std::unique_ptr<db::ClientDataSet> plano = SQLDatasetToClientDataSet(*consulta);
  consulta->Close();
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  std::function<void(const std::string&)> soma_filhas = [&](const std::string& superiora) {
    plano->SetFiltered(false);
    plano->SetFilter(fmt::format(kFilhas, fmt::arg("empresa", empresa),
                                 fmt::arg("revenda", revenda),
                                 fmt::arg("conta", sql::QuotedAsIs(superiora))));
    plano->SetFiltered(true);
    std::vector<std::pair<std::string, std::string>> filhas;
    for (plano->First(); !plano->Eof(); plano->Next())
      filhas.emplace_back(plano->FieldByName("CONTA").AsString(),
                          plano->FieldByName("NIVEL").AsString());
    for (const auto& [conta, nivel] : filhas) {
      if (nivel == "A")
        Saldo += analitica(conta);
      else
        soma_filhas(conta);
    }
  };
  soma_filhas(Conta);
  return Saldo;  // 3
}

// The division variant of steps 5 and 6: the same statements, with every
// dimension that comes as a list written as "in (list)"; the second book is
// narrowed, as in the single form, only by division dealership, cost centres
// and item type. No cache is used.
double TddmContabilidadeBD::BuscaSaldoContaAnaliticaPeriodoDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
    const std::string& Categorias, const std::string& SecoesOficina,
    const std::string& RevendasDivisao, const std::string& Modalidades,
    const std::string& RevendasDesconsiderar) {
  auto consulta = NovaConsulta("sdsSaldoContaPeriodoDivisoes");
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  const std::string ano_mes = sql::Integer(AnoMes);
  const std::string dia_inicial = sql::Integer(DiaInicial);
  const std::string dia_final = sql::Integer(DiaFinal);
  const std::string conta = sql::QuotedAsIs(Conta);
  const std::string& lista = RevendasDesconsiderar;
  FiltroSaldo filtro{Empresa,        Revenda,
                     CentroCusto,    Fonte,
                     Categoria,      SecaoOficina,
                     RevendaDivisao, TipoItem,
                     Modalidade,     Conta,
                     CentrosCusto,   false,
                     std::string(),  RevendasDesconsiderar};
  filtro.fontes = Fontes;
  filtro.categorias = Categorias;
  filtro.secoes_oficina = SecoesOficina;
  filtro.revendas_divisao = RevendasDivisao;
  filtro.modalidades = Modalidades;
  const std::string divisoes = FiltroDivisao(filtro);
  const std::string exclusao = VerifRevendasDesconsiderar(lista, true, "l", "and", true) +
                               VerifRevendasDesconsiderar(lista, false, "d", "and", true);
  auto movimento = [&](const char* natureza) {
    return fmt::format(kMovimento, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                       fmt::arg("conta", conta), fmt::arg("ano_mes", ano_mes),
                       fmt::arg("dia_inicial", dia_inicial), fmt::arg("dia_final", dia_final),
                       fmt::arg("exclusao", exclusao), fmt::arg("restricoes", natureza + divisoes));
  };
  double debitos = PrimeiroValor(*consulta, movimento(kDebito), "TOTAL").AsFloat();
  double creditos = PrimeiroValor(*consulta, movimento(kCredito), "TOTAL").AsFloat();
  if (Modalidade == kSped) {
    FiltroSaldo reduzido{Empresa,        Revenda,      CentroCusto,   -1,    -1,           -1,
                         RevendaDivisao, TipoItem,     std::string(), Conta, CentrosCusto, false,
                         std::string(),  std::string()};
    reduzido.revendas_divisao = RevendasDivisao;
    const std::string divisoes_cv = FiltroDivisao(reduzido);
    auto movimento_cv = [&](const char* natureza) {
      return fmt::format(kMovimentoCV, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                         fmt::arg("conta", conta), fmt::arg("ano_mes", ano_mes),
                         fmt::arg("dia_inicial", dia_inicial), fmt::arg("dia_final", dia_final),
                         fmt::arg("restricoes", natureza + divisoes_cv));
    };
    debitos += PrimeiroValor(*consulta, movimento_cv(kDebito), "TOTAL").AsFloat();
    creditos += PrimeiroValor(*consulta, movimento_cv(kCredito), "TOTAL").AsFloat();
  }
  return debitos - creditos;
}

double TddmContabilidadeBD::BuscaSaldoContaPeriodoDivisoes(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& Nivel, const std::string& CentrosCusto,
    const std::string& Fontes, const std::string& Categorias, const std::string& SecoesOficina,
    const std::string& RevendasDivisao, const std::string& Modalidades, double& Saldo,
    const std::string& RevendasDesconsiderar) {
  return CaminhaPlano(Empresa, Revenda, Conta, Nivel, Saldo, [&](const std::string& conta) {
    return BuscaSaldoContaAnaliticaPeriodoDivisoes(
        Empresa, Revenda, AnoMes, DiaInicial, DiaFinal, CentroCusto, Fonte, Categoria, SecaoOficina,
        RevendaDivisao, TipoItem, Modalidade, conta, CentrosCusto, Fontes, Categorias,
        SecoesOficina, RevendasDivisao, Modalidades, RevendasDesconsiderar);
  });
}

}  // namespace kvc
