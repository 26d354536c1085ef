// The movement of an analytic account's division rows between two days of one
// month (BuscaSaldoContaAnaliticaPeriodo), answered from the module's cache of
// the grouped movement of the month or by its own statements, the chart
// walker over it (BuscaSaldoContaPeriodo), and their division variants with
// list-valued filters.
#include <array>
#include <functional>
#include <utility>
#include <vector>

#include "accounting/balances/leitura_saldo.h"
#include "accounting/balances/saldo_filtros.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

constexpr char kSped[] = "SPED";
constexpr char kAnd[] = " and ";

// The cache slot of the movement set, and its index.
constexpr size_t kCacheMovimentoDias = 2;
constexpr char kIndice[] = "indice";
constexpr char kCamposIndice[] = "conta;revenda_divisao;centro_custo;natureza";

// 2: the grouped movement of every account of the company, dealership, month
// and days.
constexpr char kAgrupado[] =
    "select l.natureza, d.revenda_divisao, d.revenda_origem, d.centro_custo,        d.fonte, "
    "d.categoria, d.secao_oficina,        d.tipo_item, d.modalidade_operacao, l.conta,        "
    "sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d, ctb_lancamento l "
    "where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda = d.revenda and "
    "l.ano_mes = d.ano_mes and l.empresa = ";
constexpr char kAgrupadoRevenda[] = " and l.revenda = ";
constexpr char kAgrupadoMes[] = " and l.ano_mes = ";
constexpr char kAgrupadoDias[] = " and l.dia between ";
constexpr char kAgrupadoGrupo[] =
    " group by l.natureza, d.revenda_divisao, d.revenda_origem, d.centro_custo, "
    "       d.fonte, d.categoria, d.secao_oficina, "
    "       d.tipo_item, d.modalidade_operacao, l.conta";

// 4: the filter of the movement set for one account and nature.
constexpr char kFiltroConta[] = "conta = '";

// 5 and 6: the division rows of one account and nature, in the main book and
// in the second one.
constexpr char kMovimento[] =
    " select sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d, "
    "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda "
    "= d.revenda and l.ano_mes = d.ano_mes and l.empresa = ";
constexpr char kMovimentoCV[] =
    " select sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido_cv d, "
    "ctb_lancamento_cv l where l.lancamento = d.lancamento and l.empresa = d.empresa and "
    "l.revenda = d.revenda and l.ano_mes = d.ano_mes and l.empresa = ";
constexpr char kMovimentoRevenda[] = " and l.revenda = ";
constexpr char kMovimentoConta[] = " and l.conta = '";
constexpr char kMovimentoMes[] = " and l.ano_mes = ";
constexpr char kMovimentoDias[] = " and l.dia between ";

// 4, 5 and 6: the nature of the rows summed.
constexpr char kDebito[] = " and natureza = 'D'";
constexpr char kCredito[] = " and natureza = 'C'";

// BuscaSaldoContaPeriodo: the chart, and the filter of an account's children.
constexpr char kPlano[] =
    " select EMPRESA, REVENDA, CONTA_SUPERIORA,         CONTA, NIVEL  from CTB_CONTA order by "
    "EMPRESA, REVENDA, CONTA_SUPERIORA";
constexpr char kFilhasEmpresa[] = "EMPRESA = ";
constexpr char kFilhasRevenda[] = " and   REVENDA = ";
constexpr char kFilhasSuperiora[] = " and   CONTA_SUPERIORA = '";

}  // namespace

double TddmContabilidadeBD::BuscaSaldoContaAnaliticaPeriodo(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, bool UsaCache,
    const std::string& RevendasDesconsiderar) {
  auto q = NovaConsulta("sdsSaldoContaPeriodo");  // 1
  const std::string e = sql::Integer(Empresa);
  const std::string r = sql::Integer(Revenda);
  const std::string mes = sql::Integer(AnoMes);
  const std::string di = sql::Integer(DiaInicial);
  const std::string df = sql::Integer(DiaFinal);
  const std::string& lista = RevendasDesconsiderar;

  // 2. The exclusion list is not part of the key: a later call with another
  // list is answered from the set loaded with the first one. Intended. A load
  // that fails leaves no set and no key, so that the next call loads again.
  const std::array<int32_t, 5> chave{Empresa, Revenda, AnoMes, DiaInicial, DiaFinal};
  if (UsaCache && (chaves_cache_ != chave || !caches_[kCacheMovimentoDias])) {
    chaves_cache_ = chave;
    caches_[kCacheMovimentoDias].reset();
    try {
      q->SetCommandText(kAgrupado + e + kAgrupadoRevenda + r + kAgrupadoMes + mes + kAgrupadoDias +
                        di + kAnd + df + VerifRevendasDesconsiderar(lista, true, "L", "and", true) +
                        VerifRevendasDesconsiderar(lista, false, "D", "and", true) +
                        kAgrupadoGrupo);
      q->Open();
      std::unique_ptr<db::ClientDataSet> movimento = SQLDatasetToClientDataSet(*q);
      q->Close();
      movimento->AddIndex(kIndice, kCamposIndice);
      movimento->SetIndexName(kIndice);
      caches_[kCacheMovimentoDias] = std::move(movimento);
    } catch (...) {
      chaves_cache_ = {-1, -1, -1, -1, -1};
      throw;
    }
  }

  // 3. The division filter, the modality left out when it is "SPED".
  const std::string fd = FiltroDivisao(FiltroSaldo{
      Empresa, Revenda, CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao, TipoItem,
      Modalidade, Conta, CentrosCusto, false, std::string(), RevendasDesconsiderar});

  double debitos = 0, creditos = 0;
  if (UsaCache) {  // 4
    db::ClientDataSet& movimento = *caches_[kCacheMovimentoDias];
    const std::string filtro = kFiltroConta + Conta + "'" + fd;
    debitos += SomaFiltrada(movimento, filtro + kDebito, "TOTAL").first;
    creditos += SomaFiltrada(movimento, filtro + kCredito, "TOTAL").first;
  } else {  // 5
    const std::string sql = kMovimento + e + kMovimentoRevenda + r + kMovimentoConta + Conta + "'" +
                            kMovimentoMes + mes + kMovimentoDias + di + kAnd + df +
                            VerifRevendasDesconsiderar(lista, true, "l", "and", true) +
                            VerifRevendasDesconsiderar(lista, false, "d", "and", true);
    debitos += PrimeiroValor(*q, sql + kDebito + fd, "TOTAL").AsFloat();
    creditos += PrimeiroValor(*q, sql + kCredito + fd, "TOTAL").AsFloat();
  }

  // 6. The second book, cached or not: only the division dealership, the
  // cost centres and the item type narrow it (source, category and workshop
  // section are left out on purpose), and no dealership is excluded.
  if (Modalidade == kSped) {
    const std::string fd_cv = FiltroDivisao(
        FiltroSaldo{Empresa, Revenda, CentroCusto, -1, -1, -1, RevendaDivisao, TipoItem,
                    std::string(), Conta, CentrosCusto, false, std::string(), std::string()});
    const std::string sql = kMovimentoCV + e + kMovimentoRevenda + r + kMovimentoConta + Conta +
                            "'" + kMovimentoMes + mes + kMovimentoDias + di + kAnd + df;
    debitos += PrimeiroValor(*q, sql + kDebito + fd_cv, "TOTAL").AsFloat();
    creditos += PrimeiroValor(*q, sql + kCredito + fd_cv, "TOTAL").AsFloat();
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

  auto q = NovaConsulta("sdsPlanoContas");  // 2
  q->SetCommandText(kPlano);
  q->Open();
  const std::unique_ptr<db::ClientDataSet> plano = SQLDatasetToClientDataSet(*q);
  q->Close();
  const std::string e = sql::Integer(Empresa);
  const std::string r = sql::Integer(Revenda);
  std::function<void(const std::string&)> soma_filhas = [&](const std::string& superiora) {
    plano->SetFiltered(false);
    plano->SetFilter(kFilhasEmpresa + e + kFilhasRevenda + r + kFilhasSuperiora + superiora + "'");
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
  auto q = NovaConsulta("sdsSaldoContaPeriodoDivisoes");
  const std::string e = sql::Integer(Empresa);
  const std::string r = sql::Integer(Revenda);
  const std::string mes = sql::Integer(AnoMes);
  const std::string di = sql::Integer(DiaInicial);
  const std::string df = sql::Integer(DiaFinal);
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
  const std::string fd = FiltroDivisao(filtro);
  const std::string sql = kMovimento + e + kMovimentoRevenda + r + kMovimentoConta + Conta + "'" +
                          kMovimentoMes + mes + kMovimentoDias + di + kAnd + df +
                          VerifRevendasDesconsiderar(lista, true, "l", "and", true) +
                          VerifRevendasDesconsiderar(lista, false, "d", "and", true);
  double debitos = PrimeiroValor(*q, sql + kDebito + fd, "TOTAL").AsFloat();
  double creditos = PrimeiroValor(*q, sql + kCredito + fd, "TOTAL").AsFloat();
  if (Modalidade == kSped) {
    FiltroSaldo reduzido{Empresa,        Revenda,      CentroCusto,   -1,    -1,           -1,
                         RevendaDivisao, TipoItem,     std::string(), Conta, CentrosCusto, false,
                         std::string(),  std::string()};
    reduzido.revendas_divisao = RevendasDivisao;
    const std::string fd_cv = FiltroDivisao(reduzido);
    const std::string sql_cv = kMovimentoCV + e + kMovimentoRevenda + r + kMovimentoConta + Conta +
                               "'" + kMovimentoMes + mes + kMovimentoDias + di + kAnd + df;
    debitos += PrimeiroValor(*q, sql_cv + kDebito + fd_cv, "TOTAL").AsFloat();
    creditos += PrimeiroValor(*q, sql_cv + kCredito + fd_cv, "TOTAL").AsFloat();
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
