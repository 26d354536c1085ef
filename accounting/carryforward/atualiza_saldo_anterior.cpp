// The roll-up of a year's carried-forward balances up the chart of accounts:
// every synthetic account's row becomes the sum of the analytic rows beneath
// it, in CTB_SALDO_ANTERIOR (AtualizaSaldoAnterior) and per division
// combination in CTB_SALDO_ANTERIOR_DIVISAO (AtualizaSaldoAnteriorDivisao).
// Failed writes go to the error log and the run goes on; no transaction is
// begun here.
#include <optional>

#include <fmt/format.h>

#include "accounting/carryforward/saldo_anterior_comum.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kCaptionDivisao[] = "Atualizando saldo dividido das contas superioras ...";

// 1. The synthetic rows of the year go.
constexpr char kExcluiSinteticas[] =
    " delete from ctb_saldo_anterior "
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano = {ano}"
    " and   conta not in (select conta"
    " from ctb_conta                    "
    " where empresa = {empresa}                    "
    " and   revenda = {revenda}"
    " and   nivel = 'A')";
constexpr char kExcluiSinteticasDivisao[] =
    " delete from ctb_saldo_anterior_divisao "
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano = {ano}"
    " and   conta not in  (select conta"
    " from ctb_conta "
    " where nivel = 'A'"
    " and   empresa = {empresa}"
    " and   revenda = {revenda})";

// 2. The analytic rows of the year.
constexpr char kAnaliticas[] =
    " select s.CONTA,"
    "         s.ANO,"
    "           s.SALDO    "
    " from CTB_SALDO_ANTERIOR s,"
    "         CTB_CONTA c            "
    " where c.EMPRESA = {empresa}   "
    " and c.REVENDA = {revenda}   "
    " and ANO = {ano}   "
    " and c.EMPRESA = s.EMPRESA    "
    " and c.REVENDA = s.REVENDA    "
    " and c.CONTA = s.CONTA    "
    " and c.NIVEL = 'A'";
constexpr char kAnaliticasDivisao[] =
    "   select s.CONTA,"
    "                                s.ANO,"
    "                                  s.REVENDA_DIVISAO,"
    "                      s.TIPO_ITEM,"
    "                            s.CATEGORIA,"
    "                            s.CENTRO_CUSTO,"
    "                         s.MODALIDADE_OPERACAO,"
    "                  s.SECAO_OFICINA,"
    "                        s.FONTE,"
    "                                s.SALDO                           "
    " from CTB_SALDO_ANTERIOR_DIVISAO s,"
    "           CTB_CONTA c                      "
    " where c.EMPRESA = {empresa}     "
    " and c.REVENDA = {revenda}     "
    " and ANO = {ano}     "
    " and c.EMPRESA = s.EMPRESA      "
    " and c.REVENDA = s.REVENDA      "
    " and c.CONTA = s.CONTA      "
    " and c.NIVEL = 'A'"
    " order by c.CONTA ";

// 4. The write of one account of the chain. {saldo} is ValorSaldoAnterior's
// text; {conta} and {ano} are copied as they stand.
constexpr char kAtualiza[] =
    "update ctb_saldo_anterior"
    " set saldo = {saldo}"
    " where empresa = {empresa}"
    " and revenda = {revenda}"
    " and conta = {conta}"
    " and ano = {ano}";
constexpr char kInclui[] =
    "insert into ctb_saldo_anterior (empresa,revenda,conta,ano,saldo)"
    "values({empresa},{revenda},{conta},{ano},{saldo})";

// One division combination's row of an account ({divisao}: the
// combination's condition, from CondicaoDivisaoSaldo, as are {valores}).
constexpr char kBuscaDivisao[] =
    "select CONTA, REVENDA_DIVISAO, TIPO_ITEM, CATEGORIA, CENTRO_CUSTO,"
    "       MODALIDADE_OPERACAO, SECAO_OFICINA, FONTE, SALDO"
    " from CTB_SALDO_ANTERIOR_DIVISAO"
    " where EMPRESA = {empresa}"
    " and REVENDA = {revenda}"
    " and CONTA = {conta}"
    " and ANO = {ano}{divisao}";
constexpr char kAtualizaDivisao[] =
    "update ctb_saldo_anterior_divisao "
    " set saldo = {saldo}"
    " where empresa = {empresa}"
    " and revenda = {revenda}"
    " and conta = {conta}"
    " and ano = {ano}{divisao}";
constexpr char kIncluiDivisao[] =
    "insert into ctb_saldo_anterior_divisao  (sequencia, empresa, revenda, ano, conta,"
    " revenda_divisao, tipo_item, categoria,"
    "  centro_custo, modalidade_operacao, secao_oficina, fonte, saldo)"
    "values({sequencia},{empresa},{revenda},{ano},{conta}{valores},{saldo})";

}  // namespace

// The superior account of `conta` ("" at the root or when unknown).
std::string TddmContabilidadeBD::ContaSuperiora(const std::string& conta) {
  sdsContaSuperiora.Close();
  sdsContaSuperiora.ParamByName("EMPRESA").value = aplicacao_->Empresa;
  sdsContaSuperiora.ParamByName("REVENDA").value = aplicacao_->Revenda;
  sdsContaSuperiora.ParamByName("CONTA").value = conta;
  sdsContaSuperiora.Open();
  std::string superiora = sdsContaSuperiora.FieldByName("CONTA_SUPERIORA").AsString();
  sdsContaSuperiora.Close();
  return superiora;
}

void TddmContabilidadeBD::SobeContasSuperioras(
    const std::string& conta_analitica, double saldo_analitico,
    const std::function<std::optional<double>(const std::string& conta)>& gravado,
    const std::function<void(const std::string& conta, bool existe, double saldo)>& grava) {
  double parcela = 0;  // the analytic account itself: its row as it is
  for (std::string conta = conta_analitica; !conta.empty(); conta = ContaSuperiora(conta)) {
    const std::optional<double> atual = gravado(conta);
    grava(conta, atual.has_value(), atual ? *atual + parcela : saldo_analitico);
    parcela = saldo_analitico;
  }
}

std::optional<double> TddmContabilidadeBD::SaldoAnteriorGravado(const std::string& conta,
                                                                const std::string& ano) {
  sdsBuscaContaSaldo.Close();
  sdsBuscaContaSaldo.ParamByName("EMPRESA").value = aplicacao_->Empresa;
  sdsBuscaContaSaldo.ParamByName("REVENDA").value = aplicacao_->Revenda;
  sdsBuscaContaSaldo.ParamByName("CONTA").value = conta;
  sdsBuscaContaSaldo.ParamByName("ANO").value = ano;
  sdsBuscaContaSaldo.Open();
  std::optional<double> saldo;
  if (!sdsBuscaContaSaldo.IsEmpty()) saldo = sdsBuscaContaSaldo.FieldByName("SALDO").AsFloat();
  sdsBuscaContaSaldo.Close();
  return saldo;
}

std::optional<double> TddmContabilidadeBD::SaldoAnteriorDivisaoGravado(
    const std::string& conta, const std::string& ano, const std::string& condicao) {
  sdsBuscaSaldoDivisao.Close();
  sdsBuscaSaldoDivisao.SetCommandText(
      fmt::format(kBuscaDivisao, fmt::arg("empresa", sql::Integer(aplicacao_->Empresa)),
                  fmt::arg("revenda", sql::Integer(aplicacao_->Revenda)),
                  fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano),
                  fmt::arg("divisao", condicao)));
  sdsBuscaSaldoDivisao.Open();
  std::optional<double> saldo;
  if (!sdsBuscaSaldoDivisao.IsEmpty()) saldo = sdsBuscaSaldoDivisao.FieldByName("SALDO").AsFloat();
  sdsBuscaSaldoDivisao.Close();
  return saldo;
}

// Steps 1 to 5; the numbers appear in the body.
void TddmContabilidadeBD::AtualizaSaldoAnterior(const std::string& Ano,
                                                IProgressCallback* Callback) {
  // The host's year text enters the statements as it stands.
  const std::string empresa = sql::Integer(aplicacao_->Empresa);
  const std::string revenda = sql::Integer(aplicacao_->Revenda);
  ExecutaRegistrando(fmt::format(kExcluiSinteticas, fmt::arg("empresa", empresa),  // 1
                                 fmt::arg("revenda", revenda), fmt::arg("ano", Ano)),
                     kMsgExcluiSaldoAnterior);
  db::ClientDataSet analiticas("cdsEncerra");  // 2
  dspEncerra.Provide(analiticas,
                     fmt::format(kAnaliticas, fmt::arg("empresa", empresa),
                                 fmt::arg("revenda", revenda), fmt::arg("ano", Ano)),
                     {});
  SendCommand(Callback, std::string(kCmdBar) + "0");  // 3
  ProgressPhase progresso(Callback, static_cast<int64_t>(analiticas.RecordCount()));
  for (analiticas.First(); !analiticas.Eof(); analiticas.Next()) {  // 4
    progresso.Step();
    const std::string conta_analitica = analiticas.FieldByName("CONTA").AsString();
    const std::string ano = analiticas.FieldByName("ANO").AsString();
    const double saldo = analiticas.FieldByName("SALDO").AsFloat();
    (void)ContaSuperiora(conta_analitica);  // opened, its result not used here
    SobeContasSuperioras(
        conta_analitica, saldo,
        [&](const std::string& conta) { return SaldoAnteriorGravado(conta, ano); },
        [&](const std::string& conta, bool existe, double novo_saldo) {
          ExecutaRegistrando(
              existe
                  ? fmt::format(kAtualiza, fmt::arg("saldo", ValorSaldoAnterior(novo_saldo)),
                                fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano))
                  : fmt::format(kInclui, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano),
                                fmt::arg("saldo", ValorSaldoAnterior(novo_saldo))),
              kMsgIncluiSaldoAnterior);
        });
  }
  analiticas.Close();  // 5
}

void TddmContabilidadeBD::AtualizaSaldoAnteriorDivisao(const std::string& Ano,
                                                       IProgressCallback* Callback) {
  const std::string empresa = sql::Integer(aplicacao_->Empresa);
  const std::string revenda = sql::Integer(aplicacao_->Revenda);
  ExecutaRegistrando(fmt::format(kExcluiSinteticasDivisao, fmt::arg("empresa", empresa),  // 1
                                 fmt::arg("revenda", revenda), fmt::arg("ano", Ano)),
                     kMsgExcluiSaldoAnteriorDivisao);
  db::ClientDataSet analiticas("cdsEncerra");  // 2
  dspEncerra.Provide(analiticas,
                     fmt::format(kAnaliticasDivisao, fmt::arg("empresa", empresa),
                                 fmt::arg("revenda", revenda), fmt::arg("ano", Ano)),
                     {});
  SendCommand(Callback, kCmdCaption + std::string(kCaptionDivisao));  // 3
  SendCommand(Callback, std::string(kCmdBar) + "0");
  ProgressPhase progresso(Callback, static_cast<int64_t>(analiticas.RecordCount()));
  for (analiticas.First(); !analiticas.Eof(); analiticas.Next()) {
    progresso.Step();
    const std::string conta_analitica = analiticas.FieldByName("CONTA").AsString();
    const std::string ano = analiticas.FieldByName("ANO").AsString();
    const double saldo = analiticas.FieldByName("SALDO").AsFloat();
    // 4. The row's division condition and its values for an insert.
    std::string condicao, valores;
    CondicaoDivisaoSaldo(analiticas, false, condicao, valores);
    (void)ContaSuperiora(conta_analitica);
    SobeContasSuperioras(
        conta_analitica, saldo,
        [&](const std::string& conta) {
          return SaldoAnteriorDivisaoGravado(conta, ano, condicao);  // 5
        },
        [&](const std::string& conta, bool existe, double novo_saldo) {
          try {  // 6, 7
            std::string sql;
            if (existe) {
              sql = fmt::format(kAtualizaDivisao, fmt::arg("saldo", ValorSaldoAnterior(novo_saldo)),
                                fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                fmt::arg("conta", sql::QuotedAsIs(conta)), fmt::arg("ano", ano),
                                fmt::arg("divisao", condicao));
            } else {
              // Always drawn under company 1 and dealership 1: one sequence for
              // the whole database.
              const int32_t sequencia = BuscaProximoNumeroTran(
                  *conexao_, 1, 1, "CTB_SALDO_ANTERIOR_DIVISAO", "SEQUENCIA", 1);
              sql = fmt::format(kIncluiDivisao, fmt::arg("sequencia", sql::Integer(sequencia)),
                                fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                fmt::arg("ano", ano), fmt::arg("conta", sql::QuotedAsIs(conta)),
                                fmt::arg("valores", valores),
                                fmt::arg("saldo", ValorSaldoAnterior(novo_saldo)));
            }
            sdsAux.Close();
            sdsAux.SetCommandText(sql);
            sdsAux.ExecSQL();
          } catch (const std::exception& erro) {
            RegistraErro(kMsgIncluiSaldoAnteriorDivisao, erro);
          }
        });
  }
  analiticas.Close();
}

}  // namespace kvc
