// The annual closing: a year's carried-forward balances are rewritten from
// scratch, per account and per division combination, from the balance
// queries, and then rolled up to the synthetic accounts. Each delete and
// insert stands on its own: a failure becomes a row of the caller's error
// table and the run goes on.
#include <algorithm>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <fmt/format.h>

#include "accounting/carryforward/saldo_anterior_comum.h"
#include "accounting/db/client_dataset.h"
#include "accounting/db/error.h"
#include "accounting/db/result_set.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/log_erros.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// 1. Accounts that are their own superior account.
constexpr char kAutoReferencia[] =
    "select EMPRESA, REVENDA, CONTA"
    " FROM CTB_CONTA"
    " where EMPRESA = {empresa}"
    " and REVENDA = {revenda}"
    " and CONTA = CONTA_SUPERIORA";
constexpr char kMsgAutoReferencia[] =
    "As seguintes contas estão com a conta superiora igual a conta";
constexpr char kTituloCancelado[] = "Encerramento Anual Cancelado ...";

// 2. The year's account balances.
constexpr char kExclui[] =
    " delete from ctb_saldo_anterior "
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano = {ano}";

// 3. The analytic accounts.
constexpr char kAnaliticas[] =
    "   select EMPRESA,"
    "            REVENDA,"
    "            CONTA         "
    " from CTB_CONTA    "
    " where EMPRESA = {empresa}     "
    " and REVENDA = {revenda}     "
    " and NIVEL = 'A'"
    " order by CONTA ";

// 4, 5. Balances and their rows.
constexpr char kCaptionSaldos[] = "Buscando o movimento e saldo do período ...";
constexpr char kCaptionGrava[] = "Atualizando o saldo Anterior na base ...";
// {saldo}: the amount pattern "###0.00".
constexpr char kInclui[] =
    " insert into ctb_saldo_anterior(empresa, revenda, conta, ano, saldo)"
    " values({empresa} ,{revenda} ,{conta} ,{ano} ,{saldo} )";

// 6. The year's division balances.
constexpr char kExcluiDivisao[] =
    " delete from ctb_saldo_anterior_divisao "
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano = {ano}";

// 7. The division combinations of the two-year window: (a) those with
// division rows of entries of analytic accounts, (b) those carried forward
// from the year before. Sorted so that sequences follow the same order on
// every server.
constexpr char kCombinacoes[] =
    " select l.empresa, l.revenda, l.conta, d.centro_custo, d.fonte, d.categoria,"
    " d.secao_oficina, d.tipo_item, d.modalidade_operacao, d.revenda_divisao"
    " from ctb_lancamento l, ctb_lancamento_dividido d, ctb_conta c"
    " where l.empresa = {empresa}"
    " and   l.revenda = {revenda}"
    " and   d.empresa = l.empresa"
    " and   d.revenda = l.revenda"
    " and   d.ano_mes = l.ano_mes"
    " and   d.lancamento = l.lancamento"
    " and   c.empresa = l.empresa"
    " and   c.revenda = l.revenda"
    " and   c.conta = l.conta"
    " and   c.nivel = 'A'"
    " and   l.ano_mes between {ano_anterior}01 and {ano}12"
    " group by l.empresa, l.revenda, l.conta, d.centro_custo, d.fonte, d.categoria,"
    " d.secao_oficina, d.tipo_item, d.modalidade_operacao, d.revenda_divisao"
    " union"
    " select d.empresa, d.revenda, d.conta, d.centro_custo, d.fonte, d.categoria,"
    " d.secao_oficina, d.tipo_item, d.modalidade_operacao, d.revenda_divisao"
    " from ctb_saldo_anterior_divisao d, ctb_conta c"
    " where d.empresa = {empresa}"
    " and   d.revenda = {revenda}"
    " and   c.empresa = d.empresa"
    " and   c.revenda = d.revenda"
    " and   c.conta = d.conta"
    " and   c.nivel = 'A'"
    " and   d.ano = {ano_anterior}"
    " group by d.empresa, d.revenda, d.conta, d.centro_custo, d.fonte, d.categoria,"
    " d.secao_oficina, d.tipo_item, d.modalidade_operacao, d.revenda_divisao"
    " order by 3, 4, 5, 6, 7, 8, 9, 10";
constexpr char kCaptionDivisoes[] = "Atualizando o saldo Anterior dividido na base ..";
constexpr char kTabelaSequencia[] = "CTB_SALDO_ANTERIOR_DIVISAO";
constexpr char kChaveSequencia[] = "SEQUENCIA";
// {divisoes}: " ,value" for each of the seven division values, " ,NULL" for
// an empty one (Valor).
constexpr char kIncluiDivisao[] =
    " insert into ctb_saldo_anterior_divisao (sequencia, empresa, revenda, ano, conta,"
    " revenda_divisao, tipo_item, categoria,"
    "  centro_custo, modalidade_operacao, secao_oficina, fonte, saldo)"
    " values({sequencia} ,{empresa} ,{revenda} ,{ano} ,{conta}{divisoes} ,{saldo} )";

// 8. The roll-up.
constexpr char kCaptionSuperioras[] = "Atualizando saldo das contas superioras ...";

// " ,value" for a division value, " ,NULL" for an empty one.
std::string Valor(const std::string& texto, bool aspas) {
  if (texto.empty()) return " ,NULL";
  return " ," + (aspas ? sql::Quoted(texto) : texto);
}

int32_t InteiroOuNenhum(const db::Value& valor) {
  return valor.IsNull() ? -1 : static_cast<int32_t>(valor.AsInteger());
}

}  // namespace

void TddmContabilidadeBD::EncerramentoAnual(const std::string& Ano, std::string& Erros,
                                            IProgressCallback* Callback) {
  const int32_t ano = StrToInt(Ano, "Ano");
  const int32_t empresa = aplicacao_->Empresa;
  const int32_t revenda = aplicacao_->Revenda;
  const std::string empresa_sql = sql::Integer(empresa);
  const std::string revenda_sql = sql::Integer(revenda);
  const int32_t mes_seguinte = (ano + 1) * 100 + 1;

  // The caller's error table, read before anything runs: data that is not
  // an error table is refused whole.
  auto erros = std::make_unique<db::ClientDataSet>("cdsErros");
  if (Erros.empty()) {
    erros->DefineFields(DefinicaoLogErros());
  } else {
    erros->LoadFromString(Erros);
    for (const char* campo : kCamposLogErros)
      if (!erros->HasField(campo))
        throw std::invalid_argument(std::string("Erros: the error table has no field ") + campo);
    // The fields must take the values of an error row (RegistraErro): a
    // date-time (or its text) and three texts; found out only when a
    // statement failed, the wrong type would stop the run halfway.
    for (const db::FieldDef& campo : erros->FieldDefs()) {
      const bool data = db::SameFieldName(campo.name, kErroData);
      const bool texto = !data && std::any_of(kCamposLogErros.begin() + 1, kCamposLogErros.end(),
                                              [&](const char* nome) {
                                                return db::SameFieldName(campo.name, nome);
                                              });
      if ((data && campo.type != db::FieldType::kDateTime &&
           campo.type != db::FieldType::kString) ||
          (texto && campo.type != db::FieldType::kString))
        throw std::invalid_argument("Erros: the field " + campo.name + " of the error table is " +
                                    std::string(db::FieldTypeName(campo.type)) + ", not " +
                                    (data ? "datetime or string" : "string"));
    }
  }

  // 1. Consistency check.
  sdsAux2.Close();
  sdsAux2.SetCommandText(fmt::format(kAutoReferencia, fmt::arg("empresa", empresa_sql),
                                     fmt::arg("revenda", revenda_sql)));
  sdsAux2.Open();
  if (!sdsAux2.IsEmpty()) {
    std::string lista;
    for (sdsAux2.First(); !sdsAux2.Eof(); sdsAux2.Next())
      lista += "\n[" + sdsAux2.FieldByName("CONTA").AsString() + "]";
    sdsAux2.Close();
    SendCommand(Callback, kCmdError + std::string(kMsgAutoReferencia) + lista + kCmdSeparator +
                              kTituloCancelado);
    return;
  }
  sdsAux2.Close();

  // From here on the failures of single statements go to the caller's table
  // (the log of this data module for the run). Whatever happens, the table
  // goes back to the caller and the log is freed.
  log_erros_ = std::move(erros);
  struct DevolveErros {
    TddmContabilidadeBD& dm;
    std::string& erros;
    ~DevolveErros() {
      if (dm.log_erros_) erros = dm.log_erros_->SaveToString();
      dm.log_erros_.reset();
    }
  } devolve{*this, Erros};

  // The movement of the year is read through the module's cache, which may
  // hold rows loaded before the latest postings: the closing starts from the
  // database as it is now.
  cdsSaldoTotal.Close();

  // 2. Delete the year's account balances.
  ExecutaRegistrando(fmt::format(kExclui, fmt::arg("empresa", empresa_sql),
                                 fmt::arg("revenda", revenda_sql), fmt::arg("ano", Ano)),
                     kMsgExcluiSaldoAnterior);

  // 3. The working list of analytic accounts.
  db::ClientDataSet contas("cdsContasEncerramento");
  contas.DefineFields({{"EMPRESA", db::FieldType::kInteger},
                       {"REVENDA", db::FieldType::kInteger},
                       {"CONTA", db::FieldType::kString},
                       {"SALDO_ATUAL", db::FieldType::kFloat}});
  contas.AddIndex("IDX_CONTA", "CONTA");
  contas.SetIndexName("IDX_CONTA");
  sdsAux2.Close();
  sdsAux2.SetCommandText(
      fmt::format(kAnaliticas, fmt::arg("empresa", empresa_sql), fmt::arg("revenda", revenda_sql)));
  sdsAux2.Open();
  for (sdsAux2.First(); !sdsAux2.Eof(); sdsAux2.Next()) {
    contas.Append();
    contas.SetFieldValue("EMPRESA", sdsAux2.FieldByName("EMPRESA"));
    contas.SetFieldValue("REVENDA", sdsAux2.FieldByName("REVENDA"));
    contas.SetFieldValue("CONTA", sdsAux2.FieldByName("CONTA"));
    contas.SetFieldValue("SALDO_ATUAL", 0.0);
    contas.Post();
  }
  sdsAux2.Close();
  const auto total_contas = static_cast<int64_t>(contas.RecordCount());

  // 4. Each account's balance at the end of the year: what it carries into
  // January of the next.
  ProgressPhase saldos(Callback, total_contas);
  saldos.Begin(kCaptionSaldos);
  for (contas.First(); !contas.Eof(); contas.Next()) {
    saldos.Step();
    const double saldo = SaldoAnteriorDaConta(
        {.empresa = empresa, .revenda = revenda, .conta = contas.FieldByName("CONTA").AsString()},
        mes_seguinte, /*usa_movimento_geral=*/true);
    contas.Edit();
    contas.SetFieldValue("SALDO_ATUAL", saldo);
    contas.Post();
  }

  // 5. Write them, each insert on its own.
  ProgressPhase grava(Callback, total_contas);
  grava.Begin(kCaptionGrava);
  for (contas.First(); !contas.Eof(); contas.Next()) {
    grava.Step();
    ExecutaRegistrando(
        fmt::format(kInclui, fmt::arg("empresa", empresa_sql), fmt::arg("revenda", revenda_sql),
                    fmt::arg("conta", sql::QuotedAsIs(contas.FieldByName("CONTA").AsString())),
                    fmt::arg("ano", Ano),
                    fmt::arg("saldo", sql::Amount4(contas.FieldByName("SALDO_ATUAL").AsFloat()))),
        kMsgIncluiSaldoAnterior);
  }

  // 6. Delete the year's division balances.
  ExecutaRegistrando(fmt::format(kExcluiDivisao, fmt::arg("empresa", empresa_sql),
                                 fmt::arg("revenda", revenda_sql), fmt::arg("ano", Ano)),
                     kMsgExcluiSaldoAnteriorDivisao);

  // 7. The division combinations and their balances.
  const std::string anterior = sql::Integer(ano - 1);
  sdsEncerra.Close();
  sdsEncerra.SetCommandText(fmt::format(kCombinacoes, fmt::arg("empresa", empresa_sql),
                                        fmt::arg("revenda", revenda_sql),
                                        fmt::arg("ano_anterior", anterior), fmt::arg("ano", Ano)));
  sdsEncerra.Open();
  const auto combinacoes = SQLDatasetToClientDataSet(sdsEncerra);
  sdsEncerra.Close();
  ProgressPhase divisoes(Callback, static_cast<int64_t>(combinacoes->RecordCount()));
  divisoes.Begin(kCaptionDivisoes);
  for (combinacoes->First(); !combinacoes->Eof(); combinacoes->Next()) {
    divisoes.Step();
    const db::ClientDataSet& combinacao = *combinacoes;
    const std::string conta = combinacao.FieldByName("CONTA").AsString();
    const std::string tipo_item = combinacao.FieldByName("TIPO_ITEM").AsString();
    const std::string modalidade = combinacao.FieldByName("MODALIDADE_OPERACAO").AsString();
    // An empty division value is -1 for the balance query, which then asks
    // for the rows where that column is null: the combination's own rows.
    const double saldo = SaldoAnteriorDaConta(
        {.empresa = empresa,
         .revenda = revenda,
         .conta = conta,
         .por_divisao = true,
         .centro_custo = InteiroOuNenhum(combinacao.FieldByName("CENTRO_CUSTO")),
         .fonte = InteiroOuNenhum(combinacao.FieldByName("FONTE")),
         .categoria = InteiroOuNenhum(combinacao.FieldByName("CATEGORIA")),
         .secao_oficina = InteiroOuNenhum(combinacao.FieldByName("SECAO_OFICINA")),
         .revenda_divisao = InteiroOuNenhum(combinacao.FieldByName("REVENDA_DIVISAO")),
         .tipo_item = tipo_item,
         .modalidade_operacao = modalidade},
        mes_seguinte, /*usa_movimento_geral=*/true);
    if (!conexao_) throw db::DatabaseError("no connection", "");
    const int32_t sequencia =
        BuscaProximoNumeroTran(*conexao_, 1, 1, kTabelaSequencia, kChaveSequencia, 1);
    const std::string divisoes =
        Valor(combinacao.FieldByName("REVENDA_DIVISAO").AsString(), false) +
        Valor(tipo_item, true) + Valor(combinacao.FieldByName("CATEGORIA").AsString(), false) +
        Valor(combinacao.FieldByName("CENTRO_CUSTO").AsString(), false) + Valor(modalidade, true) +
        Valor(combinacao.FieldByName("SECAO_OFICINA").AsString(), false) +
        Valor(combinacao.FieldByName("FONTE").AsString(), false);
    ExecutaRegistrando(
        fmt::format(kIncluiDivisao, fmt::arg("sequencia", sql::Integer(sequencia)),
                    fmt::arg("empresa", empresa_sql), fmt::arg("revenda", revenda_sql),
                    fmt::arg("ano", Ano), fmt::arg("conta", sql::Quoted(conta)),
                    fmt::arg("divisoes", divisoes), fmt::arg("saldo", sql::Amount4(saldo))),
        kMsgIncluiSaldoAnteriorDivisao);
  }

  // 8. The synthetic accounts.
  SendCommand(Callback, kCmdCaption + std::string(kCaptionSuperioras));
  SendCommand(Callback, kCmdBar + std::string("0"));
  AtualizaSaldoAnterior(Ano, Callback);
  AtualizaSaldoAnteriorDivisao(Ano, Callback);
  // 9. The error table goes back through `devolve`.
}

}  // namespace kvc
