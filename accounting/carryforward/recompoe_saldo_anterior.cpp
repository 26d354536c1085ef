// The host's repair of a year's carried-forward balances: the roll-up of the
// analytic rows to the synthetic accounts in one transaction of its own,
// silent, answering true or false (RecompoeSaldoAnterior); and per division
// combination, carrying the previous year's qualifying combinations forward
// with a zero balance (RecompoeSaldoAnteriorDivisao).
#include <optional>

#include "accounting/carryforward/saldo_anterior_comum.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// 2. The synthetic rows of the year.
constexpr char kExclui[] = " delete from ctb_saldo_anterior  where empresa = ";
constexpr char kExcluiRevenda[] = " and   revenda = ";
constexpr char kExcluiAno[] = " and   ano = ";
constexpr char kExcluiConta[] =
    " and   conta not in (select conta from ctb_conta where        empresa = ";
constexpr char kExcluiContaRevenda[] = " and   revenda = ";
constexpr char kExcluiFim[] = " and   nivel = 'A')";
constexpr char kExcluiDivisao[] = " delete from ctb_saldo_anterior_divisao  where empresa = ";
constexpr char kExcluiDivisaoConta[] =
    " and   conta not in (select conta from ctb_conta  where nivel = 'A' and   empresa = ";
constexpr char kExcluiDivisaoFim[] = ")";

// 3. The analytic rows of the year.
constexpr char kAnaliticas[] =
    " select s.CONTA,                      s.ANO,                        s.SALDO                  "
    "from CTB_SALDO_ANTERIOR s,         CTB_CONTA c             where c.EMPRESA = ";
constexpr char kAnaliticasDivisao[] =
    " select s.ANO,                                s.CATEGORIA,                          "
    "s.CENTRO_CUSTO,                       s.CONTA,                              s.FONTE,       "
    "                       s.MODALIDADE_OPERACAO,                s.REVENDA_DIVISAO,          "
    "          s.REVENDA_ORIGEM,                     s.SALDO,                              "
    "s.SECAO_OFICINA,                      s.TIPO_ITEM                      from "
    "CTB_SALDO_ANTERIOR_DIVISAO s,         CTB_CONTA c                     where c.EMPRESA = ";
constexpr char kAnaliticasRevenda[] = "    and c.REVENDA = ";
constexpr char kAnaliticasAno[] = "    and ANO = ";
constexpr char kAnaliticasFim[] =
    "    and c.EMPRESA = s.EMPRESA     and c.REVENDA = s.REVENDA     and c.CONTA = s.CONTA     "
    "and c.NIVEL = 'A' ";

// 4. The writes of the walk.
constexpr char kAtualiza[] = "update ctb_saldo_anterior set saldo = ";
constexpr char kAtualizaDivisao[] = "update ctb_saldo_anterior_divisao  set saldo = ";
constexpr char kAtualizaEmpresa[] = " where empresa = ";
constexpr char kAtualizaRevenda[] = " and revenda = ";
constexpr char kAtualizaConta[] = " and conta = '";
constexpr char kAtualizaAno[] = " and ano = ";
// Without a column list: it relies on the table's column order EMPRESA,
// REVENDA, CONTA, ANO, SALDO, which the schema keeps for it.
constexpr char kInclui[] = "insert into ctb_saldo_anterior values(";
constexpr char kIncluiDivisao[] =
    "insert into ctb_saldo_anterior_divisao  "
    "(SEQUENCIA,EMPRESA,REVENDA,ANO,CONTA,REVENDA_DIVISAO,TIPO_ITEM,   "
    "CATEGORIA,CENTRO_CUSTO,MODALIDADE_OPERACAO,SECAO_OFICINA,FONTE,SALDO,REVENDA_ORIGEM)  "
    "values(";

// 5. The previous year's division combinations to carry forward. The year
// 2009 is fixed in the text: that is the required behaviour.
constexpr char kCombinacoes[] =
    " select CSD.EMPRESA,        CSD.REVENDA,        CSD.CONTA,        CSD.REVENDA_DIVISAO,        "
    "CSD.TIPO_ITEM,        CSD.CATEGORIA,        CSD.CENTRO_CUSTO,        "
    "CSD.MODALIDADE_OPERACAO,        CSD.SECAO_OFICINA,        CSD.FONTE,        "
    "CSD.REVENDA_ORIGEM from CTB_SALDO_ANTERIOR_DIVISAO CSD,      CTB_CONTA CCO where "
    "CSD.EMPRESA = ";
constexpr char kCombinacoesRevenda[] = " and   CSD.REVENDA = ";
constexpr char kCombinacoesAno[] = " and   CSD.ANO     = ";
constexpr char kCombinacoesCondicoes[] =
    " and   CSD.SALDO is not null and   CSD.SALDO <> 0 and   CSD.EMPRESA = CCO.EMPRESA and   "
    "CSD.REVENDA = CCO.REVENDA and   CSD.CONTA   = CCO.CONTA and   CCO.NIVEL   = 'A' and  "
    "(CCO.LANCAMENTO_DIVIDIDO = 'S'    or  (CCO.CONTA not like '1%'     and CCO.CONTA not like "
    "'2%')) and not exists (select EMPRESA                 from CTB_SALDO_ANTERIOR_DIVISAO CS1  "
    "               where CS1.EMPRESA             = CSD.EMPRESA                 and   "
    "CS1.REVENDA             = CSD.REVENDA                 and   CS1.ANO                 = ";
constexpr char kCombinacoesFim[] =
    "                 and   CS1.CONTA               = CSD.CONTA                 and   "
    "coalesce(CS1.REVENDA_DIVISAO,0)         = coalesce(CSD.REVENDA_DIVISAO,0)                 "
    "and   coalesce(CS1.TIPO_ITEM,'9')           = coalesce(CSD.TIPO_ITEM,'9')                 "
    "and   coalesce(CS1.CATEGORIA,0)               = coalesce(CSD.CATEGORIA,0)                 "
    "and   coalesce(CS1.CENTRO_CUSTO,0)            = coalesce(CSD.CENTRO_CUSTO,0)              "
    "   and   coalesce(CS1.MODALIDADE_OPERACAO,'9') = coalesce(CSD.MODALIDADE_OPERACAO,'9')     "
    "            and   coalesce(CS1.SECAO_OFICINA,0)           = coalesce(CSD.SECAO_OFICINA,0)  "
    "               and   coalesce(CS1.FONTE,0)                   = coalesce(CSD.FONTE,0)       "
    "          and   coalesce(CS1.REVENDA_ORIGEM,0)          = coalesce(CSD.REVENDA_ORIGEM,0)) "
    "and exists (select EMPRESA             from CTB_SALDO_ANTERIOR CSA                 where "
    "CSA.EMPRESA             = CSD.EMPRESA                 and   CSA.REVENDA             = "
    "CSD.REVENDA                 and   CSA.ANO                 = 2009                 and   "
    "CSA.CONTA               = CSD.CONTA) and (CSD.REVENDA_DIVISAO is not null   or "
    "CSD.TIPO_ITEM is not null   or CSD.CATEGORIA is not null   or CSD.CENTRO_CUSTO is not null "
    "  or CSD.MODALIDADE_OPERACAO is not null   or CSD.SECAO_OFICINA is not null   or CSD.FONTE "
    "is not null   or CSD.REVENDA_ORIGEM is not null) order by 1, 2, 3 ";
constexpr char kIncluiCombinacao[] =
    " insert into CTB_SALDO_ANTERIOR_DIVISAO  "
    "(SEQUENCIA,EMPRESA,REVENDA,ANO,CONTA,REVENDA_DIVISAO,TIPO_ITEM,   "
    "CATEGORIA,CENTRO_CUSTO,MODALIDADE_OPERACAO,SECAO_OFICINA,FONTE,SALDO,REVENDA_ORIGEM)  "
    "values(";

}  // namespace

void TddmContabilidadeBD::ExecutaEscrita(const std::string& sql) {
  sdsExecutaSQL.Close();
  sdsExecutaSQL.SetCommandText(sql);
  sdsExecutaSQL.ExecSQL();
}

bool TddmContabilidadeBD::RecompoeSaldoAnterior(const std::string& Ano) {
  const std::string e = sql::Integer(aplicacao_->Empresa);
  const std::string r = sql::Integer(aplicacao_->Revenda);
  if (!IniciaTransacao()) return false;  // 1
  try {
    ExecutaEscrita(kExclui + e + kExcluiRevenda + r + kExcluiAno + Ano + kExcluiConta + e +  // 2
                   kExcluiContaRevenda + r + kExcluiFim);
    sdsAux.Close();  // 3
    sdsAux.SetCommandText(kAnaliticas + e + kAnaliticasRevenda + r + kAnaliticasAno + Ano +
                          kAnaliticasFim);
    sdsAux.Open();
    const auto analiticas = SQLDatasetToClientDataSet(sdsAux);
    sdsAux.Close();
    for (analiticas->First(); !analiticas->Eof(); analiticas->Next()) {  // 4
      const std::string ano = analiticas->FieldByName("ANO").AsString();
      const double saldo = analiticas->FieldByName("SALDO").AsFloat();
      double parcela = 0;
      for (std::string conta = analiticas->FieldByName("CONTA").AsString(); !conta.empty();) {
        const std::optional<double> atual = SaldoAnteriorGravado(conta, ano);
        ExecutaEscrita(atual ? kAtualiza + ValorSaldoAnterior(*atual + parcela) + kAtualizaEmpresa +
                                   e + kAtualizaRevenda + r + kAtualizaConta + conta + "'" +
                                   kAtualizaAno + ano
                             : kInclui + e + "," + r + ",'" + conta + "'" + "," + ano + "," +
                                   ValorSaldoAnterior(saldo) + ")");
        conta = ContaSuperiora(conta);
        parcela = saldo;
      }
    }
    return ComitaTransacao();  // 5
  } catch (const std::exception&) {
    // Any failure: everything is undone, nothing is reported but the result.
    (void)RollbackTransacao();
    return false;
  }
}

bool TddmContabilidadeBD::RecompoeSaldoAnteriorDivisao(const std::string& Ano) {
  const std::string e = sql::Integer(aplicacao_->Empresa);
  const std::string r = sql::Integer(aplicacao_->Revenda);
  if (!IniciaTransacao()) return false;  // 1
  try {
    ExecutaEscrita(kExcluiDivisao + e + kExcluiRevenda + r + kExcluiAno + Ano +  // 2
                   kExcluiDivisaoConta + e + kExcluiContaRevenda + r + kExcluiDivisaoFim);
    sdsAux.Close();  // 3
    sdsAux.SetCommandText(kAnaliticasDivisao + e + kAnaliticasRevenda + r + kAnaliticasAno + Ano +
                          kAnaliticasFim);
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
      double parcela = 0;
      for (std::string conta = analiticas->FieldByName("CONTA").AsString(); !conta.empty();) {
        const std::optional<double> atual = SaldoAnteriorDivisaoGravado(conta, ano, condicao);
        ExecutaEscrita(atual ? kAtualizaDivisao + ValorSaldoAnterior(*atual + parcela) +
                                   kAtualizaEmpresa + e + kAtualizaRevenda + r + kAtualizaConta +
                                   conta + "'" + kAtualizaAno + ano + condicao
                             : kIncluiDivisao + sequencia() + "," + e + "," + r + "," + ano + ",'" +
                                   conta + "'" + valores + "," + ValorSaldoAnterior(saldo) + "," +
                                   texto_origem + ")");
        conta = ContaSuperiora(conta);
        parcela = saldo;
      }
    }
    sdsAux.Close();  // 5
    sdsAux.SetCommandText(kCombinacoes + e + kCombinacoesRevenda + r + kCombinacoesAno +
                          sql::Integer(std::stoll(Ano) - 1) + kCombinacoesCondicoes + Ano +
                          kCombinacoesFim);
    sdsAux.Open();
    const auto combinacoes = SQLDatasetToClientDataSet(sdsAux);
    sdsAux.Close();
    for (combinacoes->First(); !combinacoes->Eof(); combinacoes->Next()) {  // 6
      CondicaoDivisaoSaldo(*combinacoes, true, condicao, valores);
      const db::Value& origem = combinacoes->FieldByName("REVENDA_ORIGEM");
      ExecutaEscrita(kIncluiCombinacao + sequencia() + "," + e + "," + r + "," + Ano + ",'" +
                     combinacoes->FieldByName("CONTA").AsString() + "'" + valores + ",0" + "," +
                     (origem.IsNull() ? std::string("NULL") : origem.AsString()) + ")");
    }
    return ComitaTransacao();  // 7
  } catch (const std::exception&) {
    (void)RollbackTransacao();
    return false;
  }
}

}  // namespace kvc
