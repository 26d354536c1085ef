// The net movement of an analytic account over a range of months: one grouped
// statement per call (CalculaMovimentoContaAnaliticaPeriodo), or the grouped
// movement of every account kept in cdsSaldoTotal and filtered per account
// (CalculaMovimentoContaAnaliticaPeriodoGeral), with the two division
// conditions they use.
#include <memory>
#include <string>

#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kSped[] = "SPED";
constexpr char kSpedTavro[] = "SPED_Tavro";
constexpr char kAnd[] = " and ";

// The division conditions: column names and the pieces around the values.
constexpr char kRevendaDivisao[] = "revenda_divisao";
constexpr char kCentroCusto[] = "centro_custo";
constexpr char kFonte[] = "fonte";
constexpr char kCategoria[] = "categoria";
constexpr char kSecaoOficina[] = "secao_oficina";
constexpr char kTipoItem[] = "tipo_item";
constexpr char kModalidade[] = "modalidade_operacao";
constexpr char kIgual[] = " = ";
constexpr char kNulo[] = " is null";
constexpr char kNaoNulo[] = " is not null";

// ---- single form ----

// 2a: the monthly division balances of the account, all counted as debit.
// {exclusao}: the dealership-exclusion predicates; {divisao}: the division
// restriction.
constexpr char kMes[] =
    "select 'D' natureza, sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa = {empresa}"
    " and   e.revenda = {revenda}"
    " and   e.conta = {conta}"
    " and   e.ano_mes between {inicio} and {fim}{exclusao}{divisao}";

// 2b: the journal with the dealership exclusion (also step 4's replacement
// when a list is given).
constexpr char kExclusao[] =
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
    " and L.ANO_MES between {inicio} and {fim}{exclusao}{divisao}"
    " group by L.NATUREZA ";

// 2c and 3: the division rows of the account, in the main book ({livro}
// empty) and in the second one ({livro} "_cv", joined by union).
constexpr char kDividido[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido{livro} d, ctb_lancamento{livro} l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes between {inicio} and {fim}{divisao}"
    " group by l.natureza";

// 4: the entries' own values.
constexpr char kTavro[] =
    "select l.natureza, sum(l.val_lancamento) total"
    " from ctb_lancamento l"
    " where l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes between {inicio} and {fim}"
    " group by l.natureza";

// ---- Geral form: the statements of cdsSaldoTotal ----

// 1, division mode.
constexpr char kDivMes[] =
    "select 'D' natureza,"
    "       e.conta,"
    "       e.revenda_divisao,"
    "       e.centro_custo,"
    "       e.fonte,"
    "       e.categoria,"
    "       e.secao_oficina,"
    "       e.tipo_item,"
    "       e.modalidade_operacao,"
    "       sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa    = :EMPRESA"
    " and   e.revenda    = :REVENDA"
    " and   e.ano_mes between :PERINI and :PERFIN";
constexpr char kDivMesGrupo[] =
    " group by e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria,"
    " e.secao_oficina, e.tipo_item, e.modalidade_operacao";
constexpr char kDivExclusao[] =
    "select L.NATUREZA,"
    "       L.CONTA,"
    "       D.REVENDA_DIVISAO,"
    "       D.CENTRO_CUSTO,"
    "       D.FONTE,"
    "       D.CATEGORIA,"
    "       D.SECAO_OFICINA,"
    "       D.TIPO_ITEM,"
    "       D.MODALIDADE_OPERACAO,"
    "       sum(coalesce(D.VAL_DIVISAO, 0)) as TOTAL  "
    " from CTB_LANCAMENTO L       "
    " left outer join CTB_LANCAMENTO_DIVIDIDO D          on D.EMPRESA = L.EMPRESA        "
    " and D.REVENDA = L.REVENDA        "
    " and D.ANO_MES = L.ANO_MES        "
    " and D.LANCAMENTO = L.LANCAMENTO "
    " where L.EMPRESA = {empresa}  "
    " and L.REVENDA = {revenda}  "
    " and L.ANO_MES between :PERINI and :PERFIN{exclusao}"
    " group by L.NATUREZA,"
    "           L.CONTA,"
    "           D.REVENDA_DIVISAO,"
    "           D.CENTRO_CUSTO,"
    "           D.FONTE,"
    "           D.CATEGORIA,"
    "           D.SECAO_OFICINA,"
    "           D.TIPO_ITEM,"
    "           D.MODALIDADE_OPERACAO ";
constexpr char kDivDividido[] =
    "select l.natureza,"
    "       l.conta,"
    "       d.revenda_divisao,"
    "       d.centro_custo,"
    "       d.fonte,"
    "       d.categoria,"
    "       d.secao_oficina,"
    "       d.tipo_item,"
    "       d.modalidade_operacao,"
    "       sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and   l.empresa    = :EMPRESA"
    " and   l.revenda    = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria,"
    " d.secao_oficina, d.tipo_item, d.modalidade_operacao";
// The second book reports source, category and workshop section as 0 and
// the modality as an empty text.
constexpr char kDivUniaoCV[] =
    " union"
    " select l.natureza,"
    "       l.conta,"
    "       d.revenda_divisao,"
    "       d.centro_custo,"
    "       0 fonte,"
    "       0 categoria,"
    "       0 secao_oficina,"
    "       d.tipo_item,"
    "       '' modalidade_operacao,"
    "       sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido_cv d, ctb_lancamento_cv l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and   l.empresa    = :EMPRESA"
    " and   l.revenda    = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.tipo_item";

// 2, total mode.
constexpr char kTotMes[] =
    "select e.conta,"
    "       'D' natureza,"
    "       sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa    = :EMPRESA"
    " and   e.revenda    = :REVENDA"
    " and   e.ano_mes between :PERINI and :PERFIN";
constexpr char kTotMesGrupo[] = " group by e.conta";
constexpr char kTotExclusao[] =
    "select L.CONTA,"
    "        L.NATUREZA,"
    "        sum(coalesce(D.VAL_DIVISAO, 0)) as TOTAL  "
    " from CTB_LANCAMENTO L       "
    " left outer join CTB_LANCAMENTO_DIVIDIDO D          on D.EMPRESA = L.EMPRESA        "
    " and D.REVENDA = L.REVENDA        "
    " and D.ANO_MES = L.ANO_MES        "
    " and D.LANCAMENTO = L.LANCAMENTO "
    " where L.EMPRESA = {empresa}  "
    " and L.REVENDA = {revenda}  "
    " and L.ANO_MES between :PERINI and :PERFIN{exclusao}"
    " group by L.NATUREZA,"
    "           L.CONTA ";
constexpr char kTotDividido[] =
    "select l.conta, l.natureza, sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and   l.empresa    = :EMPRESA"
    " and   l.revenda    = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta";
constexpr char kTotUniaoCV[] =
    " union"
    " select l.conta, l.natureza, sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido_cv d, ctb_lancamento_cv l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and   l.empresa    = :EMPRESA"
    " and   l.revenda    = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta";

// The index of the division rows, and the filter on the account.
constexpr char kIndice[] = "indice";
constexpr char kCamposIndice[] = "conta;revenda_divisao";
constexpr char kFiltroConta[] = " CONTA = ";

// " and <column> = <value>" or " and <column> is null".
std::string Condicao(const char* coluna, bool informado, const std::string& valor) {
  return informado ? kAnd + std::string(coluna) + kIgual + valor
                   : kAnd + std::string(coluna) + kNulo;
}

// Item type and modality, alike in both division conditions.
std::string CondicoesTexto(const std::string& TipoItem, const std::string& ModalidadeOperacao) {
  return (TipoItem.empty() ? Condicao(kTipoItem, false, "")
                           : Condicao(kTipoItem, true, sql::QuotedAsIs(TipoItem))) +
         (ModalidadeOperacao.empty() || ModalidadeOperacao == kSped
              ? Condicao(kModalidade, false, "")
              : Condicao(kModalidade, true, sql::QuotedAsIs(ModalidadeOperacao)));
}

// Walks the rows: each row of nature "D" or "C" replaces that nature's total
// (rows are not added up; the last one read counts).
template <typename Rows>
double UltimoDebitoMenosUltimoCredito(Rows& rows) {
  double debito = 0, credito = 0;
  for (rows.First(); !rows.Eof(); rows.Next()) {
    const std::string natureza = rows.FieldByName("NATUREZA").AsString();
    if (natureza == "C")
      credito = rows.FieldByName("TOTAL").AsFloat();
    else if (natureza == "D")
      debito = rows.FieldByName("TOTAL").AsFloat();
  }
  return debito - credito;
}

}  // namespace

std::string TddmContabilidadeBD::MontaRestricaoDivisao(int32_t CentroCusto, int32_t Fonte,
                                                       int32_t Categoria, int32_t SecaoOficina,
                                                       int32_t RevendaDivisao,
                                                       const std::string& TipoItem,
                                                       const std::string& ModalidadeOperacao,
                                                       const std::string& RestricaoDivisao) {
  if (!RestricaoDivisao.empty()) return RestricaoDivisao;
  // Any value of -1 or less is none.
  auto numero = [](const char* coluna, int32_t v) {
    return Condicao(coluna, v > -1, sql::Integer(v));
  };
  return numero(kRevendaDivisao, RevendaDivisao) + numero(kCentroCusto, CentroCusto) +
         numero(kFonte, Fonte) + numero(kCategoria, Categoria) +
         numero(kSecaoOficina, SecaoOficina) + CondicoesTexto(TipoItem, ModalidadeOperacao);
}

std::string TddmContabilidadeBD::MontaFiltroDivisao(int32_t CentroCusto, int32_t Fonte,
                                                    int32_t Categoria, int32_t SecaoOficina,
                                                    int32_t RevendaDivisao,
                                                    const std::string& TipoItem,
                                                    const std::string& ModalidadeOperacao) {
  // Only -1 is none: -2 is searched for as a value.
  auto numero = [](const char* coluna, int32_t v) {
    return v == -1 ? Condicao(coluna, false, "")
                   : Condicao(coluna, true, sql::Integer(v)) + kAnd + coluna + kNaoNulo;
  };
  return numero(kRevendaDivisao, RevendaDivisao) + numero(kCentroCusto, CentroCusto) +
         numero(kFonte, Fonte) + numero(kCategoria, Categoria) +
         numero(kSecaoOficina, SecaoOficina) + CondicoesTexto(TipoItem, ModalidadeOperacao);
}

double TddmContabilidadeBD::CalculaMovimentoContaAnaliticaPeriodo(
    int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& ModalidadeOperacao,
    const std::string& Conta, bool PorDivisao, const std::string& RestricaoDivisao,
    bool UsaSaldoDivisaoMes, const std::string& RevendasDesconsiderar) {
  // 1. A query of its own, without the rewriting step: the statement runs as
  // written.
  auto consulta = std::make_unique<db::SQLDataSet>("sdsMovimentoPeriodo");
  consulta->SetConnection(Conexao());

  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  const std::string inicio = sql::Integer(AnoMesInicial);
  const std::string fim = sql::Integer(AnoMesFinal);
  const std::string conta = sql::QuotedAsIs(Conta);
  const std::string& lista = RevendasDesconsiderar;
  const std::string divisao =
      PorDivisao
          ? MontaRestricaoDivisao(CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                                  TipoItem, ModalidadeOperacao, RestricaoDivisao)
          : std::string();
  auto exclusao = [&](const std::string& condicao_divisao) {
    return fmt::format(
        kExclusao, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
        fmt::arg("conta", conta), fmt::arg("inicio", inicio), fmt::arg("fim", fim),
        fmt::arg("exclusao", VerifRevendasDesconsiderar(lista, true, "L", "and", true) +
                                 VerifRevendasDesconsiderar(lista, false, "D", "and", true)),
        fmt::arg("divisao", condicao_divisao));
  };
  auto dividido = [&](const char* livro) {
    return fmt::format(kDividido, fmt::arg("livro", livro), fmt::arg("empresa", empresa),
                       fmt::arg("revenda", revenda), fmt::arg("conta", conta),
                       fmt::arg("inicio", inicio), fmt::arg("fim", fim),
                       fmt::arg("divisao", divisao));
  };

  // 2. The statement.
  std::string sql;
  if (UsaSaldoDivisaoMes) {  // a
    sql = fmt::format(
        kMes, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda), fmt::arg("conta", conta),
        fmt::arg("inicio", inicio), fmt::arg("fim", fim),
        fmt::arg("exclusao", VerifRevendasDesconsiderar(lista, false, "e", "and", false)),
        fmt::arg("divisao", divisao));
  } else {
    if (!lista.empty())  // b
      sql = exclusao(divisao);
    else  // c
      sql = dividido("");
    // 3. The second book, with no dealership exclusion.
    if (ModalidadeOperacao == kSped) sql += " union " + dividido("_cv");
  }

  // 4. The entries' own values replace whatever was chosen.
  if (!PorDivisao && RestricaoDivisao == kSpedTavro)
    sql = !lista.empty() ? exclusao(std::string())
                         : fmt::format(kTavro, fmt::arg("empresa", empresa),
                                       fmt::arg("revenda", revenda), fmt::arg("conta", conta),
                                       fmt::arg("inicio", inicio), fmt::arg("fim", fim));

  // 5. Each row replaces the total of its nature.
  consulta->SetCommandText(sql);
  consulta->Open();
  const double movimento = UltimoDebitoMenosUltimoCredito(*consulta);
  // 6.
  consulta->Close();
  return movimento;
}

double TddmContabilidadeBD::CalculaMovimentoContaAnaliticaPeriodoGeral(
    int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& ModalidadeOperacao,
    const std::string& Conta, bool PorDivisao, bool UsaSaldoDivisaoMes,
    const std::string& RevendasDesconsiderar) {
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);
  const std::string& lista = RevendasDesconsiderar;
  // The dealership-exclusion predicates of the journal forms.
  const std::string exclusao = VerifRevendasDesconsiderar(lista, true, "L", "and", true) +
                               VerifRevendasDesconsiderar(lista, false, "D", "and", true);
  const bool sped = ModalidadeOperacao == kSped;

  // The key: the four parameters read back as integers. Only the company,
  // dealership and range: source flag, exclusion list and "SPED" are left out
  // on purpose. A set that never loaded is not reused.
  auto parametro = [this](const char* nome) {
    return cdsSaldoTotalParams.ByName(nome).value.AsInteger();
  };
  const bool mesma_chave = cdsSaldoTotal.Active() && parametro("EMPRESA") == Empresa &&
                           parametro("REVENDA") == Revenda &&
                           parametro("PERINI") == AnoMesInicial &&
                           parametro("PERFIN") == AnoMesFinal;

  // Sets the parameters and loads the rows. The connection layer binds the
  // parameters as exact numbers, so whole values stand for the four-decimal
  // fixed-point ones.
  auto carrega = [&](const std::string& comando) {
    for (auto [nome, valor] :
         {std::pair{"EMPRESA", Empresa}, std::pair{"REVENDA", Revenda},
          std::pair{"PERINI", AnoMesInicial}, std::pair{"PERFIN", AnoMesFinal}}) {
      db::Param& parametro = cdsSaldoTotalParams.ByName(nome);
      parametro.type = db::ParamType::kBcd;
      parametro.value = static_cast<long long>(valor);
    }
    cdsSaldoTotalCommandText = comando;
    cdsSaldoTotal.SetFiltered(false);
    dspSaldoTotal.Provide(cdsSaldoTotal, cdsSaldoTotalCommandText, cdsSaldoTotalParams);
  };

  if (PorDivisao) {
    // 1. Division mode also needs the division columns in the cached rows.
    if (!mesma_chave || !cdsSaldoTotal.HasField("REVENDA_DIVISAO")) {
      cdsSaldoTotal.Close();
      std::string comando;
      if (UsaSaldoDivisaoMes) {
        comando =
            kDivMes + VerifRevendasDesconsiderar(lista, false, "e", "and", false) + kDivMesGrupo;
      } else {
        if (!lista.empty())
          comando = fmt::format(kDivExclusao, fmt::arg("empresa", empresa),
                                fmt::arg("revenda", revenda), fmt::arg("exclusao", exclusao));
        else
          comando = kDivDividido;
        if (sped) comando += kDivUniaoCV;
      }
      carrega(comando);
      cdsSaldoTotal.AddIndex(kIndice, kCamposIndice);
      cdsSaldoTotal.SetIndexName(kIndice);
    }
  } else if (!mesma_chave) {
    // 2. Total mode takes whatever rows match the key.
    cdsSaldoTotal.Close();
    std::string comando;
    if (UsaSaldoDivisaoMes) {
      comando =
          kTotMes + VerifRevendasDesconsiderar(lista, false, "e", "and", false) + kTotMesGrupo;
    } else {
      if (!lista.empty())
        comando = fmt::format(kTotExclusao, fmt::arg("empresa", empresa),
                              fmt::arg("revenda", revenda), fmt::arg("exclusao", exclusao));
      else
        comando = kTotDividido;
      if (sped) comando += kTotUniaoCV;
    }
    // The rows have no division column for "indice".
    cdsSaldoTotal.SetIndexName("");
    carrega(comando);
  }

  // 3. The account, and in division mode its division values.
  std::string filtro = kFiltroConta + sql::QuotedAsIs(Conta);
  if (PorDivisao)
    filtro += MontaFiltroDivisao(CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                                 TipoItem, ModalidadeOperacao);
  cdsSaldoTotal.SetFilter(filtro);
  cdsSaldoTotal.SetFiltered(true);
  cdsSaldoTotal.First();

  // 4. As the single form; the cache stays open and filtered.
  return UltimoDebitoMenosUltimoCredito(cdsSaldoTotal);
}

}  // namespace kvc
