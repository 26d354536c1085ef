// The host's repair of a year's carried-forward balances: the roll-up of the
// analytic rows to the synthetic accounts in one transaction of its own,
// silent, answering true or false (RecompoeSaldoAnterior); and per division
// combination, carrying the previous year's qualifying combinations forward
// with a zero balance (RecompoeSaldoAnteriorDivisao).
#include <optional>

#include <fmt/format.h>

#include "accounting/carryforward/saldo_anterior_comum.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// 2. The synthetic rows of the year go.
constexpr char kExcluiSinteticas[] =
    " delete from ctb_saldo_anterior "
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano = {ano}"
    " and   conta not in (select conta"
    " from ctb_conta"
    " where        empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   nivel = 'A')";
constexpr char kExcluiSinteticasDivisao[] =
    " delete from ctb_saldo_anterior_divisao "
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano = {ano}"
    " and   conta not in (select conta"
    " from ctb_conta "
    " where nivel = 'A'"
    " and   empresa = {empresa}"
    " and   revenda = {revenda})";

// 3. The analytic rows of the year.
constexpr char kAnaliticas[] =
    " select s.CONTA,"
    "                      s.ANO,"
    "                        s.SALDO                 "
    " from CTB_SALDO_ANTERIOR s,"
    "         CTB_CONTA c            "
    " where c.EMPRESA = {empresa}   "
    " and c.REVENDA = {revenda}   "
    " and ANO = {ano}   "
    " and c.EMPRESA = s.EMPRESA    "
    " and c.REVENDA = s.REVENDA    "
    " and c.CONTA = s.CONTA    "
    " and c.NIVEL = 'A' ";
constexpr char kAnaliticasDivisao[] =
    " select s.ANO,"
    "                                s.CATEGORIA,"
    "                          s.CENTRO_CUSTO,"
    "                       s.CONTA,"
    "                              s.FONTE,"
    "                              s.MODALIDADE_OPERACAO,"
    "                s.REVENDA_DIVISAO,"
    "                    s.REVENDA_ORIGEM,"
    "                     s.SALDO,"
    "                              s.SECAO_OFICINA,"
    "                      s.TIPO_ITEM                     "
    " from CTB_SALDO_ANTERIOR_DIVISAO s,"
    "         CTB_CONTA c                    "
    " where c.EMPRESA = {empresa}   "
    " and c.REVENDA = {revenda}   "
    " and ANO = {ano}   "
    " and c.EMPRESA = s.EMPRESA    "
    " and c.REVENDA = s.REVENDA    "
    " and c.CONTA = s.CONTA    "
    " and c.NIVEL = 'A' ";

// 4. The writes of the walk up the chart. {saldo} is ValorSaldoAnterior's
// text; {conta} and {ano} are copied as they stand.
constexpr char kAtualiza[] =
    "update ctb_saldo_anterior"
    " set saldo = {saldo}"
    " where empresa = {empresa}"
    " and revenda = {revenda}"
    " and conta = {conta}"
    " and ano = {ano}";
// Without a column list: it relies on the table's column order EMPRESA,
// REVENDA, CONTA, ANO, SALDO, which the schema keeps for it.
constexpr char kInclui[] =
    "insert into ctb_saldo_anterior"
    " values({empresa},{revenda},{conta},{ano},{saldo})";

// {divisao} and {valores}: the division combination's condition and values
// (CondicaoDivisaoSaldo).
constexpr char kAtualizaDivisao[] =
    "update ctb_saldo_anterior_divisao "
    " set saldo = {saldo}"
    " where empresa = {empresa}"
    " and revenda = {revenda}"
    " and conta = {conta}"
    " and ano = {ano}{divisao}";
constexpr char kIncluiDivisao[] =
    "insert into ctb_saldo_anterior_divisao  (SEQUENCIA,EMPRESA,REVENDA,ANO,CONTA,REVENDA_DIVISAO,TIPO_ITEM,"
    "   CATEGORIA,CENTRO_CUSTO,MODALIDADE_OPERACAO,SECAO_OFICINA,FONTE,SALDO,REVENDA_ORIGEM) "
    " values({sequencia},{empresa},{revenda},{ano},{conta}{valores},{saldo},{revenda_origem})";

// 5. The previous year's division combinations to carry forward into {ano}.
// The year 2009 is fixed in the text: that is the required behaviour.
constexpr char kCombinacoes[] =
    " select CSD.EMPRESA,"
    "        CSD.REVENDA,"
    "        CSD.CONTA,"
    "        CSD.REVENDA_DIVISAO,"
    "        CSD.TIPO_ITEM,"
    "        CSD.CATEGORIA,"
    "        CSD.CENTRO_CUSTO,"
    "        CSD.MODALIDADE_OPERACAO,"
    "        CSD.SECAO_OFICINA,"
    "        CSD.FONTE,"
    "        CSD.REVENDA_ORIGEM"
    " from CTB_SALDO_ANTERIOR_DIVISAO CSD,"
    "      CTB_CONTA CCO"
    " where CSD.EMPRESA = {empresa}"
    " and   CSD.REVENDA = {revenda}"
    " and   CSD.ANO     = {ano_anterior}"
    " and   CSD.SALDO is not null"
    " and   CSD.SALDO <> 0"
    " and   CSD.EMPRESA = CCO.EMPRESA"
    " and   CSD.REVENDA = CCO.REVENDA"
    " and   CSD.CONTA   = CCO.CONTA"
    " and   CCO.NIVEL   = 'A'"
    " and  (CCO.LANCAMENTO_DIVIDIDO = 'S'   "
    " or  (CCO.CONTA not like '1%'    "
    " and CCO.CONTA not like '2%'))"
    " and not exists (select EMPRESA                "
    " from CTB_SALDO_ANTERIOR_DIVISAO CS1                "
    " where CS1.EMPRESA             = CSD.EMPRESA                "
    " and   CS1.REVENDA             = CSD.REVENDA                "
    " and   CS1.ANO                 = {ano}                "
    " and   CS1.CONTA               = CSD.CONTA                "
    " and   coalesce(CS1.REVENDA_DIVISAO,0)         = coalesce(CSD.REVENDA_DIVISAO,0)                "
    " and   coalesce(CS1.TIPO_ITEM,'9')           = coalesce(CSD.TIPO_ITEM,'9')                "
    " and   coalesce(CS1.CATEGORIA,0)               = coalesce(CSD.CATEGORIA,0)                "
    " and   coalesce(CS1.CENTRO_CUSTO,0)            = coalesce(CSD.CENTRO_CUSTO,0)                "
    " and   coalesce(CS1.MODALIDADE_OPERACAO,'9') = coalesce(CSD.MODALIDADE_OPERACAO,'9')                "
    " and   coalesce(CS1.SECAO_OFICINA,0)           = coalesce(CSD.SECAO_OFICINA,0)                "
    " and   coalesce(CS1.FONTE,0)                   = coalesce(CSD.FONTE,0)                "
    " and   coalesce(CS1.REVENDA_ORIGEM,0)          = coalesce(CSD.REVENDA_ORIGEM,0))"
    " and exists (select EMPRESA            "
    " from CTB_SALDO_ANTERIOR CSA                "
    " where CSA.EMPRESA             = CSD.EMPRESA                "
    " and   CSA.REVENDA             = CSD.REVENDA                "
    " and   CSA.ANO                 = 2009                "
    " and   CSA.CONTA               = CSD.CONTA)"
    " and (CSD.REVENDA_DIVISAO is not null  "
    " or CSD.TIPO_ITEM is not null  "
    " or CSD.CATEGORIA is not null  "
    " or CSD.CENTRO_CUSTO is not null  "
    " or CSD.MODALIDADE_OPERACAO is not null  "
    " or CSD.SECAO_OFICINA is not null  "
    " or CSD.FONTE is not null  "
    " or CSD.REVENDA_ORIGEM is not null)"
    " order by 1, 2, 3 ";
constexpr char kIncluiCombinacao[] =
    " insert into CTB_SALDO_ANTERIOR_DIVISAO  (SEQUENCIA,EMPRESA,REVENDA,ANO,CONTA,REVENDA_DIVISAO,TIPO_ITEM,"
    "   CATEGORIA,CENTRO_CUSTO,MODALIDADE_OPERACAO,SECAO_OFICINA,FONTE,SALDO,REVENDA_ORIGEM) "
    " values({sequencia},{empresa},{revenda},{ano},{conta}{valores},0,{revenda_origem})";

}  // namespace

void TddmContabilidadeBD::ExecutaEscrita(const std::string& sql) {
  sdsExecutaSQL.Close();
  sdsExecutaSQL.SetCommandText(sql);
  sdsExecutaSQL.ExecSQL();
}

// The host's year text enters the statements as it stands.
bool TddmContabilidadeBD::RecompoeSaldoAnterior(const std::string& Ano) {
  const std::string empresa = sql::Integer(aplicacao_->Empresa);
  const std::string revenda = sql::Integer(aplicacao_->Revenda);
  db::TransactionGuard transacao = NovaTransacao();  // 1
  if (!transacao.Begun()) return false;
  try {
    ExecutaEscrita(fmt::format(kExcluiSinteticas, fmt::arg("empresa", empresa),  // 2
                               fmt::arg("revenda", revenda), fmt::arg("ano", Ano)));
    sdsAux.Close();  // 3
    sdsAux.SetCommandText(fmt::format(kAnaliticas, fmt::arg("empresa", empresa),
                                      fmt::arg("revenda", revenda), fmt::arg("ano", Ano)));
    sdsAux.Open();
    const auto analiticas = SQLDatasetToClientDataSet(sdsAux);
    sdsAux.Close();
    for (analiticas->First(); !analiticas->Eof(); analiticas->Next()) {  // 4
      const std::string ano = analiticas->FieldByName("ANO").AsString();
      const double saldo = analiticas->FieldByName("SALDO").AsFloat();
      SobeContasSuperioras(
          analiticas->FieldByName("CONTA").AsString(), saldo,
          [&](const std::string& conta) { return SaldoAnteriorGravado(conta, ano); },
          [&](const std::string& conta, bool existe, double novo_saldo) {
            ExecutaEscrita(
                existe
                    ? fmt::format(kAtualiza, fmt::arg("saldo", ValorSaldoAnterior(novo_saldo)),
                                  fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                  fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano))
                    : fmt::format(kInclui, fmt::arg("empresa", empresa),
                                  fmt::arg("revenda", revenda),
                                  fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano),
                                  fmt::arg("saldo", ValorSaldoAnterior(novo_saldo))));
          });
    }
    return transacao.Commit();  // 5
  } catch (const std::exception&) {
    // Any failure: the guard has undone everything; nothing is reported but
    // the result.
    return false;
  }
}

bool TddmContabilidadeBD::RecompoeSaldoAnteriorDivisao(const std::string& Ano) {
  const std::string empresa = sql::Integer(aplicacao_->Empresa);
  const std::string revenda = sql::Integer(aplicacao_->Revenda);
  db::TransactionGuard transacao = NovaTransacao();  // 1
  if (!transacao.Begun()) return false;
  try {
    ExecutaEscrita(fmt::format(kExcluiSinteticasDivisao, fmt::arg("empresa", empresa),  // 2
                               fmt::arg("revenda", revenda), fmt::arg("ano", Ano)));
    sdsAux.Close();  // 3
    sdsAux.SetCommandText(fmt::format(kAnaliticasDivisao, fmt::arg("empresa", empresa),
                                      fmt::arg("revenda", revenda), fmt::arg("ano", Ano)));
    sdsAux.Open();
    const auto analiticas = SQLDatasetToClientDataSet(sdsAux);
    sdsAux.Close();
    std::string condicao, valores;
    auto sequencia = [this]() {
      // Always drawn under company 1 and dealership 1.
      return sql::Integer(
          BuscaProximoNumeroTran(*conexao_, 1, 1, "CTB_SALDO_ANTERIOR_DIVISAO", "SEQUENCIA", 1));
    };
    for (analiticas->First(); !analiticas->Eof(); analiticas->Next()) {  // 4
      const std::string ano = analiticas->FieldByName("ANO").AsString();
      const double saldo = analiticas->FieldByName("SALDO").AsFloat();
      const db::Value& origem = analiticas->FieldByName("REVENDA_ORIGEM");
      const std::string texto_origem = origem.IsNull() ? "NULL" : origem.AsString();
      CondicaoDivisaoSaldo(*analiticas, true, condicao, valores);
      SobeContasSuperioras(
          analiticas->FieldByName("CONTA").AsString(), saldo,
          [&](const std::string& conta) {
            return SaldoAnteriorDivisaoGravado(conta, ano, condicao);
          },
          [&](const std::string& conta, bool existe, double novo_saldo) {
            ExecutaEscrita(
                existe
                    ? fmt::format(kAtualizaDivisao,
                                  fmt::arg("saldo", ValorSaldoAnterior(novo_saldo)),
                                  fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                  fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano),
                                  fmt::arg("divisao", condicao))
                    : fmt::format(kIncluiDivisao, fmt::arg("sequencia", sequencia()),
                                  fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                  fmt::arg("ano", ano), fmt::arg("conta", sql::QuotedAsIs(conta)),
                                  fmt::arg("valores", valores),
                                  fmt::arg("saldo", ValorSaldoAnterior(novo_saldo)),
                                  fmt::arg("revenda_origem", texto_origem)));
          });
    }
    sdsAux.Close();  // 5
    sdsAux.SetCommandText(fmt::format(
        kCombinacoes, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
        fmt::arg("ano_anterior", sql::Integer(std::stoll(Ano) - 1)), fmt::arg("ano", Ano)));
    sdsAux.Open();
    const auto combinacoes = SQLDatasetToClientDataSet(sdsAux);
    sdsAux.Close();
    for (combinacoes->First(); !combinacoes->Eof(); combinacoes->Next()) {  // 6
      CondicaoDivisaoSaldo(*combinacoes, true, condicao, valores);
      const db::Value& origem = combinacoes->FieldByName("REVENDA_ORIGEM");
      ExecutaEscrita(fmt::format(
          kIncluiCombinacao, fmt::arg("sequencia", sequencia()), fmt::arg("empresa", empresa),
          fmt::arg("revenda", revenda), fmt::arg("ano", Ano),
          fmt::arg("conta", sql::QuotedAsIs(combinacoes->FieldByName("CONTA").AsString())),
          fmt::arg("valores", valores),
          fmt::arg("revenda_origem", origem.IsNull() ? std::string("NULL") : origem.AsString())));
    }
    return transacao.Commit();  // 7
  } catch (const std::exception&) {
    return false;
  }
}

}  // namespace kvc
