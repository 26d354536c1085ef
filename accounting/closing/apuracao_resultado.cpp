// The result calculation: the result accounts of a period are brought to zero
// by closing entries split over their divisions, with counter-entries into
// one result account, in one transaction that is committed or (a preview)
// rolled back. RetornaDataUltApuracao tells where the next period starts.
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <stdexcept>

#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// The messages the calculation puts in Mensagem besides the database's own.
// Failing to begin or to commit stops the run early: nothing is written.
constexpr char kMsgIniciaTransacao[] =
    "Não foi possível iniciar a transação da apuração do resultado. Nada foi gravado.";
constexpr char kMsgConfirmaTransacao[] =
    "Não foi possível confirmar a transação da apuração do resultado. Nada foi gravado.";
constexpr char kMsgDesfazSimulacao[] =
    "Não foi possível desfazer a simulação da apuração do resultado.";
constexpr char kMsgDataApuracao[] =
    "A data de apura\u00e7\u00e3o {:02}/{:02}/{:04} n\u00e3o \u00e9 uma data v\u00e1lida.";
constexpr char kMsgValorDivisao[] = "Valor de divis\u00e3o n\u00e3o num\u00e9rico: '{}'.";

// RetornaDataUltApuracao.
constexpr char kUltimaApuracao[] =
    " select ANOMES_APURACAO_RESULTADO    "
    " from FAT_NUMERACAO_LIVROS  "
    " where EMPRESA = {empresa}   "
    " and REVENDA = {revenda}";

// 3. The result accounts: the analytic accounts from '3' up.
constexpr char kContas[] =
    " select conta, nivel"
    " from  ctb_conta"
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   CONTA >= '3'"
    " and   nivel = 'A'";

// 4. The balance of one account: its movement over the period ({inicio} and
// {fim} are YYYYMMDD numbers), then, joined by union when it counts, its
// carried-forward part. {exclusao}: the dealership-exclusion predicates.
constexpr char kMovimento[] =
    " select l.natureza, sum(coalesce(d.val_divisao, 0)) saldo, 'M' tipo"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes*100+l.dia >= {inicio}"
    " and l.ano_mes*100+l.dia <= {fim}{exclusao}"
    " group by l.natureza";
constexpr char kUniaoAnterior[] =
    " union "
    " select CAST((case when e.saldo < 0 then 'C' else 'D' end) AS VARCHAR(1)) natureza,"
    "        sum(e.saldo) saldo, 'A' tipo"
    " from ctb_saldo_anterior_divisao e "
    " where e.empresa = {empresa}"
    " and   e.revenda = {revenda}"
    " and   e.conta = {conta}{exclusao}"
    " and   e.ano = {ano}"
    " group by CAST((case when e.saldo < 0 then 'C' else 'D' end) AS VARCHAR(1))";

// 5. The division breakdown of a movement row ({lado}: the side that closes
// it) and of a carried-forward row ({sinal}: likewise).
constexpr char kDivisaoMovimento[] =
    " select l.conta,"
    "        d.centro_custo,"
    "          d.fonte,"
    "        d.categoria,"
    "         d.secao_oficina,"
    "         d.tipo_item,"
    "        d.modalidade_operacao,"
    "        d.revenda_divisao,"
    "        sum(val_divisao) saldo"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.conta = {conta}"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}{exclusao}{lado}"
    " and l.ano_mes*100+l.dia >= {inicio}"
    " and l.ano_mes*100+l.dia <= {fim}"
    " group by l.conta, d.centro_custo, d.fonte, d.categoria, d.secao_oficina, d.tipo_item,"
    " d.modalidade_operacao, d.revenda_divisao";
constexpr char kDivisaoAnterior[] =
    " select e.conta,"
    "        e.centro_custo,"
    "          e.fonte,"
    "        e.categoria,"
    "         e.secao_oficina,"
    "         e.tipo_item,"
    "        e.modalidade_operacao,"
    "        e.revenda_divisao,"
    "        sum(e.saldo) saldo"
    " from   ctb_saldo_anterior_divisao e "
    " where  e.conta = {conta}"
    " and    e.empresa = {empresa}"
    " and    e.revenda = {revenda}{exclusao}"
    " and    e.ano = {ano}{sinal}"
    " group by e.conta, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, e.tipo_item,"
    "  e.modalidade_operacao, e.revenda_divisao";

// 6. The entries and their division rows. The closing entry carries
// ENCERRAMENTO_EXERCICIO 'S'; the counter-entry has no such column.
// {historico} and {dia} are the host's texts as given.
constexpr char kInsertEncerramento[] =
    " insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO,"
    " LCO_ORIGEM,"
    "            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,"
    "              VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,"
    "          LCO_OK, OPERACAO, ENCERRAMENTO_EXERCICIO)                                     "
    " values ( {empresa}, {revenda}, {ano_mes}, {lancamento}, NULL, {usuario}, {conta},"
    " {historico}, {dia}, {natureza}, {valor}, 'O', NULL, NULL, 'N', NULL, 'S' )";
constexpr char kInsertContrapartida[] =
    " insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO,"
    " LCO_ORIGEM,"
    "            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,"
    "              VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,"
    "          LCO_OK, OPERACAO)                          "
    " values ( {empresa}, {revenda}, {ano_mes}, {lancamento}, NULL, {usuario}, {conta},"
    " {historico}, {dia}, {natureza}, {valor}, 'O', NULL, NULL, 'N', NULL)";
constexpr char kInsertDivisao[] =
    "insert into ctb_lancamento_dividido       (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, LANCAMENTO,"
    "         REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA,"
    "            TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO)      "
    " values({sequencia}, {empresa}, {revenda}, {ano_mes}, {lancamento}, {revenda_divisao},"
    " {centro_custo}, {fonte}, {categoria}, {secao_oficina}, {tipo_item}, {modalidade}, {valor})";

// 7. The totals posted into the result account.
constexpr char kTotais[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = {empresa}"
    " and l.revenda = {revenda}"
    " and l.conta = {conta}"
    " and l.ano_mes = {ano_mes}"
    " and l.dia = {dia}"
    " and l.historico_padrao = {historico}{exclusao}"
    " group by l.natureza";

// 8. The last calculation.
constexpr char kGravaApuracao[] =
    "update FAT_NUMERACAO_LIVROS "
    " set ANOMES_APURACAO_RESULTADO = {data}"
    " where EMPRESA = {empresa}  "
    " and REVENDA = {revenda}";

constexpr char kLadoDevedor[] = " and l.natureza = 'D'";
constexpr char kLadoCredor[] = " and l.natureza = 'C'";
constexpr char kSaldoDevedor[] = " and    e.saldo > 0 ";
constexpr char kSaldoCredor[] = " and    e.saldo < 0 ";
constexpr char kTabelaLancamento[] = "CTB_LANCAMENTO";
constexpr char kChaveLancamento[] = "LCTO";

// The seven division columns of the breakdowns, in the order of the
// in-memory division table.
constexpr const char* kColunasDivisao[] = {
    "REVENDA_DIVISAO",     "TIPO_ITEM",     "CATEGORIA", "CENTRO_CUSTO",
    "MODALIDADE_OPERACAO", "SECAO_OFICINA", "FONTE"};

// A refused summarised-balance update: the run fails with an empty message.
class SaldoSumarizadoRecusado : public std::exception {
 public:
  const char* what() const noexcept override { return ""; }
};

int32_t InteiroOuNenhum(const std::string& texto) {
  int64_t v = -1;
  if (!texto.empty() && !sql::ParseInteger(texto, v))
    throw std::invalid_argument(fmt::format(kMsgValorDivisao, texto));
  return static_cast<int32_t>(v);
}

std::string InteiroOuNull(const std::string& texto) { return texto.empty() ? "null" : texto; }
std::string TextoOuNull(const std::string& texto) {
  return texto.empty() ? "null" : sql::Quoted(texto);
}

// A date built from its parts, refused when it is no calendar day.
DateTime DataApuracao(int32_t dia, int32_t mes, int32_t ano) {
  DateTime data;
  data.year = ano;
  data.month = mes;
  data.day = dia;
  if (!data.IsValid()) throw std::invalid_argument(fmt::format(kMsgDataApuracao, dia, mes, ano));
  return data;
}

// The day after `data` (time of day dropped), on the calendar: no time zone
// takes part.
DateTime DiaSeguinte(const DateTime& data) {
  using namespace std::chrono;
  const year_month_day dia{year{data.year}, month{static_cast<unsigned>(data.month)},
                           day{static_cast<unsigned>(data.day)}};
  const year_month_day seguinte{sys_days{dia} + days{1}};
  DateTime resultado;
  resultado.year = static_cast<int>(seguinte.year());
  resultado.month = static_cast<int>(static_cast<unsigned>(seguinte.month()));
  resultado.day = static_cast<int>(static_cast<unsigned>(seguinte.day()));
  return resultado;
}

}  // namespace

void TddmContabilidadeBD::DefineSeparadoresNumericos(SeparadoresNumericos separadores) {
  separadores_ = std::move(separadores);
}

void TddmContabilidadeBD::UsaSeparadoresDoLocale() { separadores_.reset(); }

SeparadoresNumericos TddmContabilidadeBD::SeparadoresEmUso() const {
  return separadores_ ? *separadores_ : SeparadoresDoLocale();
}

std::string TddmContabilidadeBD::RetornaDataUltApuracao() {
  sdsAux2.Close();  // 1
  sdsAux2.SetCommandText(fmt::format(kUltimaApuracao,
                                     fmt::arg("empresa", sql::Integer(aplicacao_->Empresa)),
                                     fmt::arg("revenda", sql::Integer(aplicacao_->Revenda))));
  sdsAux2.Open();
  std::string resultado;
  if (!sdsAux2.IsEmpty()) {  // 2, 3
    // An empty column reads as the null date (1899-12-30), whose next day is
    // 18991231: the next calculation then takes in everything.
    const DateTime data = sdsAux2.FieldByName("ANOMES_APURACAO_RESULTADO").AsDateTime();
    resultado = fmt::format("{:04}{:02}{:02}", data.year, data.month, data.day);
    if (!resultado.empty()) {
      const DateTime seguinte = DiaSeguinte(data);
      resultado = fmt::format("{:04}{:02}{:02}", seguinte.year, seguinte.month, seguinte.day);
    }
  }
  sdsAux2.Close();
  return resultado;
}

int32_t TddmContabilidadeBD::LancaApuracao(bool encerramento, int32_t AnoMes,
                                           const std::string& Dia,
                                           const std::string& HistoricoPadrao,
                                           const std::string& conta, const std::string& natureza,
                                           double valor, db::ClientDataSet& divisoes) {
  const int32_t empresa = aplicacao_->Empresa;
  const int32_t revenda = aplicacao_->Revenda;
  const std::string codigo_empresa = sql::Integer(empresa);
  const std::string codigo_revenda = sql::Integer(revenda);
  const std::string mes = sql::Integer(AnoMes);

  // 1. The number.
  const int32_t numero = BuscaProximoNumeroTran(*conexao_, empresa, revenda, kTabelaLancamento,
                                                kChaveLancamento + mes, 1);
  const std::string lancamento = sql::Integer(numero);

  // 2. The entry.
  const std::string usuario = sql::Integer(aplicacao_->CodigoUsuario);
  const std::string conta_citada = sql::QuotedAsIs(conta);
  const std::string natureza_citada = sql::QuotedAsIs(natureza);
  const std::string texto_valor = sql::Amount(valor);
  // Both forms of the entry take the same values.
  auto entrada = [&](const char* texto) {
    return fmt::format(fmt::runtime(texto), fmt::arg("empresa", codigo_empresa),
                       fmt::arg("revenda", codigo_revenda), fmt::arg("ano_mes", mes),
                       fmt::arg("lancamento", lancamento), fmt::arg("usuario", usuario),
                       fmt::arg("conta", conta_citada), fmt::arg("historico", HistoricoPadrao),
                       fmt::arg("dia", Dia), fmt::arg("natureza", natureza_citada),
                       fmt::arg("valor", texto_valor));
  };
  sdsExecutaSQL.Close();
  sdsExecutaSQL.SetCommandText(encerramento ? entrada(kInsertEncerramento)
                                            : entrada(kInsertContrapartida));
  sdsExecutaSQL.ExecSQL();

  // 4. The entry's summarised balance. The six texts are kind, operation,
  // item type, modality, account and nature; the eight integers company,
  // dealership, month, cost centre, source, category, workshop section and
  // division dealership.
  if (!AtualizaSaldoSumarizado(*conexao_, "L", "I", "", "", conta, natureza, empresa, revenda,
                               AnoMes, -1, -1, -1, -1, -1, valor))
    throw SaldoSumarizadoRecusado();

  // 3. The division rows, each followed by its summarised balance.
  for (divisoes.First(); !divisoes.Eof(); divisoes.Next()) {
    auto campo = [&divisoes](const char* nome) { return divisoes.FieldByName(nome).AsString(); };
    const std::string revenda_divisao = campo("REVENDA_DIVISAO");
    const std::string centro_custo = campo("CENTRO_CUSTO");
    const std::string fonte = campo("FONTE");
    const std::string categoria = campo("CATEGORIA");
    const std::string secao_oficina = campo("SECAO_OFICINA");
    const std::string tipo_item = campo("TIPO_ITEM");
    const std::string modalidade = campo("MODALIDADE_OPERACAO");
    const double saldo = divisoes.FieldByName("SALDO").AsFloat();
    ++contador_divisao_;
    sdsExecutaSQL.Close();
    sdsExecutaSQL.SetCommandText(fmt::format(
        kInsertDivisao, fmt::arg("sequencia", sql::Integer(contador_divisao_)),
        fmt::arg("empresa", codigo_empresa), fmt::arg("revenda", codigo_revenda),
        fmt::arg("ano_mes", mes), fmt::arg("lancamento", lancamento),
        fmt::arg("revenda_divisao", InteiroOuNull(revenda_divisao)),
        fmt::arg("centro_custo", InteiroOuNull(centro_custo)),
        fmt::arg("fonte", InteiroOuNull(fonte)), fmt::arg("categoria", InteiroOuNull(categoria)),
        fmt::arg("secao_oficina", InteiroOuNull(secao_oficina)),
        fmt::arg("tipo_item", TextoOuNull(tipo_item)),
        fmt::arg("modalidade", TextoOuNull(modalidade)), fmt::arg("valor", sql::Amount(saldo))));
    sdsExecutaSQL.ExecSQL();
    // The company also stands in the dealership's place here: the
    // established behaviour of the division rows of this operation.
    if (!AtualizaSaldoSumarizado(
            *conexao_, "D", "I", tipo_item, modalidade, conta, natureza, empresa, empresa, AnoMes,
            InteiroOuNenhum(centro_custo), InteiroOuNenhum(fonte), InteiroOuNenhum(categoria),
            InteiroOuNenhum(secao_oficina), InteiroOuNenhum(revenda_divisao), saldo))
      throw SaldoSumarizadoRecusado();
  }
  return numero;
}

bool TddmContabilidadeBD::ApuraResultado(int32_t AnoMes, const std::string& Ano,
                                         const std::string& Dia, const std::string& HistoricoPadrao,
                                         const std::string& ContaResultado, bool AnoAtual,
                                         std::string& TotalCredito, std::string& TotalDebito,
                                         std::string& Diferenca, std::string& Mensagem,
                                         bool Confirmar, bool IncluiSaldoAnterior,
                                         bool SomenteMovimento,
                                         const std::string& RevendasDesconsiderar) {
  // 1. The three working tables, fresh for the call.
  Mensagem.clear();
  db::ClientDataSet saldos("cdsApuracaoSaldos");
  saldos.DefineFields({{"CONTA", db::FieldType::kString},
                       {"NATUREZA", db::FieldType::kString},
                       {"TIPO", db::FieldType::kString},
                       {"SALDO", db::FieldType::kFloat}});
  db::ClientDataSet divisoes("cdsApuracaoDivisoes");
  divisoes.DefineFields({{"CONTA", db::FieldType::kString},
                         {"NATUREZA", db::FieldType::kString},
                         {"TIPO", db::FieldType::kString},
                         {"REVENDA_DIVISAO", db::FieldType::kInteger},
                         {"TIPO_ITEM", db::FieldType::kString},
                         {"CATEGORIA", db::FieldType::kInteger},
                         {"CENTRO_CUSTO", db::FieldType::kInteger},
                         {"MODALIDADE_OPERACAO", db::FieldType::kString},
                         {"SECAO_OFICINA", db::FieldType::kInteger},
                         {"FONTE", db::FieldType::kInteger},
                         {"SALDO", db::FieldType::kFloat}});
  db::ClientDataSet lancamentos("cdsApuracaoLancamentos");
  lancamentos.DefineFields({{"LANCAMENTO", db::FieldType::kInteger},
                            {"CONTA", db::FieldType::kString},
                            {"NATUREZA", db::FieldType::kString},
                            {"VAL_LANCAMENTO", db::FieldType::kFloat}});
  // Sorted so that entries are numbered in account order on every server,
  // whatever order the server returned the rows in.
  saldos.AddIndex("IDX_SALDOS", "CONTA;TIPO;NATUREZA");
  saldos.SetIndexName("IDX_SALDOS");
  divisoes.AddIndex("IDX_DIVISOES",
                    "CONTA;NATUREZA;TIPO;REVENDA_DIVISAO;TIPO_ITEM;CATEGORIA;CENTRO_CUSTO;"
                    "MODALIDADE_OPERACAO;SECAO_OFICINA;FONTE");
  divisoes.SetIndexName("IDX_DIVISOES");

  const std::string empresa = sql::Integer(aplicacao_->Empresa);
  const std::string revenda = sql::Integer(aplicacao_->Revenda);
  const std::string& lista = RevendasDesconsiderar;

  // 2. The period, both ends inclusive, as YYYYMMDD numbers.
  const std::string ultima = RetornaDataUltApuracao();
  const int32_t ano = StrToInt(Ano, "Ano");
  const int32_t dia = StrToInt(Dia, "Dia");
  const int64_t inicio =
      ultima.empty()
          ? static_cast<int64_t>(ano) * 10000 + 101
          : static_cast<int64_t>(StrToInt(ultima.substr(0, 6), "last calculation")) * 100 +
                StrToInt(ultima.substr(6, 2), "last calculation");
  const int64_t fim = static_cast<int64_t>(AnoMes) * 100 + dia;
  const std::string data_inicial = sql::Integer(inicio);
  const std::string data_final = sql::Integer(fim);
  const std::string ano_saldo = sql::Integer(AnoAtual ? ano : ano - 1);
  const bool com_anterior = !SomenteMovimento || IncluiSaldoAnterior || AnoAtual;
  const std::string exclusao_movimento = VerifRevendasDesconsiderar(lista, true, "l", "and", true) +
                                         VerifRevendasDesconsiderar(lista, false, "d", "and", true);
  const std::string exclusao_anterior = VerifRevendasDesconsiderar(lista, false, "e", "and", false);

  // 3. The result accounts.
  sdsAux2.Close();
  sdsAux2.SetCommandText(
      fmt::format(kContas, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda)));
  sdsAux2.Open();
  for (sdsAux2.First(); !sdsAux2.Eof(); sdsAux2.Next()) {
    const std::string conta = sdsAux2.FieldByName("CONTA").AsString();
    // Compared as a byte: a code beginning above 127 is a result account too.
    if (conta.empty() || static_cast<unsigned char>(conta[0]) <= '2' ||
        sdsAux2.FieldByName("NIVEL").AsString() != "A")
      continue;

    // 4. Its balance rows.
    // The account enters these two with its quotes doubled, the breakdowns
    // below as it stands.
    std::string sql =
        fmt::format(kMovimento, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                    fmt::arg("conta", sql::Quoted(conta)), fmt::arg("inicio", data_inicial),
                    fmt::arg("fim", data_final), fmt::arg("exclusao", exclusao_movimento));
    if (com_anterior)
      sql += fmt::format(kUniaoAnterior, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                         fmt::arg("conta", sql::Quoted(conta)),
                         fmt::arg("exclusao", exclusao_anterior), fmt::arg("ano", ano_saldo));
    sdsAux3.Close();
    sdsAux3.SetCommandText(sql);
    sdsAux3.Open();

    // 5. Each row with a balance, and its divisions.
    for (sdsAux3.First(); !sdsAux3.Eof(); sdsAux3.Next()) {
      const std::string tipo = sdsAux3.FieldByName("TIPO").AsString();
      const double saldo = sdsAux3.FieldByName("SALDO").AsFloat();
      const std::string natureza =
          tipo == "M" ? (sdsAux3.FieldByName("NATUREZA").AsString() == "C" ? "D" : "C")
                      : (saldo < 0 ? "D" : "C");
      if (std::fabs(saldo) == 0) continue;
      saldos.Append();
      saldos.SetFieldValue("CONTA", conta);
      saldos.SetFieldValue("NATUREZA", natureza);
      saldos.SetFieldValue("TIPO", tipo);
      saldos.SetFieldValue("SALDO", std::fabs(saldo));
      saldos.Post();

      std::string quebra;
      if (tipo == "M")
        quebra = fmt::format(kDivisaoMovimento, fmt::arg("conta", sql::QuotedAsIs(conta)),
                             fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                             fmt::arg("exclusao", exclusao_movimento),
                             fmt::arg("lado", natureza == "C" ? kLadoDevedor : kLadoCredor),
                             fmt::arg("inicio", data_inicial), fmt::arg("fim", data_final));
      else
        quebra = fmt::format(kDivisaoAnterior, fmt::arg("conta", sql::QuotedAsIs(conta)),
                             fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                             fmt::arg("exclusao", exclusao_anterior), fmt::arg("ano", ano_saldo),
                             fmt::arg("sinal", natureza == "C" ? kSaldoDevedor : kSaldoCredor));
      sdsConsultaLoc1.Close();
      sdsConsultaLoc1.SetCommandText(quebra);
      sdsConsultaLoc1.Open();
      for (sdsConsultaLoc1.First(); !sdsConsultaLoc1.Eof(); sdsConsultaLoc1.Next()) {
        divisoes.Append();
        divisoes.SetFieldValue("CONTA", conta);
        divisoes.SetFieldValue("NATUREZA", natureza);
        divisoes.SetFieldValue("TIPO", tipo);
        for (const char* coluna : kColunasDivisao)
          divisoes.SetFieldValue(coluna, sdsConsultaLoc1.FieldByName(coluna));
        divisoes.SetFieldValue("SALDO", std::fabs(sdsConsultaLoc1.FieldByName("SALDO").AsFloat()));
        divisoes.Post();
      }
      sdsConsultaLoc1.Close();
    }
    sdsAux3.Close();
  }
  sdsAux2.Close();

  // 6 to 9: one guarded block from the opening of the transaction to its end.
  db::TransactionGuard transacao = NovaTransacao();
  if (!transacao.Begun()) {
    Mensagem = kMsgIniciaTransacao;
    return false;
  }
  try {
    for (saldos.First(); !saldos.Eof(); saldos.Next()) {  // 6
      const std::string conta = saldos.FieldByName("CONTA").AsString();
      const std::string natureza = saldos.FieldByName("NATUREZA").AsString();
      const std::string tipo = saldos.FieldByName("TIPO").AsString();
      const double valor = saldos.FieldByName("SALDO").AsFloat();
      divisoes.SetFilter("CONTA = " + sql::Quoted(conta) + " AND NATUREZA=" +
                         sql::Quoted(natureza) + " AND TIPO = " + sql::Quoted(tipo));
      divisoes.SetFiltered(true);
      const int32_t numero =
          LancaApuracao(true, AnoMes, Dia, HistoricoPadrao, conta, natureza, valor, divisoes);
      lancamentos.Append();
      lancamentos.SetFieldValue("LANCAMENTO", numero);
      lancamentos.SetFieldValue("CONTA", conta);
      lancamentos.SetFieldValue("NATUREZA", natureza);
      lancamentos.SetFieldValue("VAL_LANCAMENTO", valor);
      lancamentos.Post();
      LancaApuracao(false, AnoMes, Dia, HistoricoPadrao, ContaResultado,
                    natureza == "C" ? "D" : "C", valor, divisoes);
      divisoes.SetFiltered(false);
    }

    // 7. The totals.
    sdsAux.Close();
    sdsAux.SetCommandText(fmt::format(
        kTotais, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
        fmt::arg("conta", sql::QuotedAsIs(ContaResultado)),
        fmt::arg("ano_mes", sql::Integer(AnoMes)), fmt::arg("dia", Dia),
        fmt::arg("historico", HistoricoPadrao), fmt::arg("exclusao", exclusao_movimento)));
    sdsAux.Open();
    double credito = 0;
    double debito = 0;
    for (sdsAux.First(); !sdsAux.Eof(); sdsAux.Next()) {
      const std::string natureza = sdsAux.FieldByName("NATUREZA").AsString();
      if (natureza == "C") credito = sdsAux.FieldByName("TOTAL").AsFloat();
      if (natureza == "D") debito = sdsAux.FieldByName("TOTAL").AsFloat();
    }
    sdsAux.Close();
    const SeparadoresNumericos separadores = SeparadoresEmUso();
    credito = std::fabs(credito);
    debito = std::fabs(debito);
    TotalCredito = FormataMilhar(credito, separadores) + " C";
    TotalDebito = FormataMilhar(debito, separadores) + " D";
    Diferenca = FormataMilhar(std::fabs(debito - credito), separadores) + " " +
                (debito > credito ? "D" : "C");

    // 8. The last calculation: Dia/month/year of AnoMes as a date.
    const DateTime data = DataApuracao(dia, AnoMes % 100, AnoMes / 100);
    sdsAux.Close();
    sdsAux.SetCommandText(fmt::format(kGravaApuracao,
                                      fmt::arg("data", DataPSql(data, aplicacao_->TipoBanco)),
                                      fmt::arg("empresa", empresa), fmt::arg("revenda", revenda)));
    sdsAux.ExecSQL();

    // 9. Commit, or roll back a preview.
    if (!Confirmar) {
      if (!transacao.Rollback()) {
        // A preview that could not be undone is rolled back once more, as
        // every other failure of the block is.
        Mensagem = kMsgDesfazSimulacao;
        (void)RollbackTransacao();
        return false;
      }
    } else if (!transacao.Commit()) {
      // ComitaTransacao has already rolled back.
      Mensagem = kMsgConfirmaTransacao;
      return false;
    }
    return true;
  } catch (const std::exception& erro) {
    // The guard rolls back what is still open when it goes.
    Mensagem = erro.what();
    return false;
  }
}

}  // namespace kvc
