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
constexpr char kMsgDataApuracao[] = "A data de apuração {:02}/{:02}/{:04} não é uma data válida.";
constexpr char kMsgValorDivisao[] = "Valor de divisão não numérico: '{}'.";

// RetornaDataUltApuracao.
constexpr char kUltimaApuracao[] =
    " select ANOMES_APURACAO_RESULTADO     from FAT_NUMERACAO_LIVROS   where EMPRESA = ";
constexpr char kUltimaApuracaoRevenda[] = "    and REVENDA = ";

// 3. The result accounts.
constexpr char kContas[] = " select conta, nivel from  ctb_conta where empresa = ";
constexpr char kContasRevenda[] = " and   revenda = ";
constexpr char kContasDesde[] = " and   CONTA >= ";
constexpr char kPrimeiraContaResultado[] = "'3'";
constexpr char kContasNivel[] = " and   nivel = 'A'";

// 4. The balance of one account: movement, then the carried-forward part.
constexpr char kMovimento[] =
    " select l.natureza, sum(coalesce(d.val_divisao, 0)) saldo, 'M' tipo from "
    "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento and l.empresa "
    "= d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes and l.empresa = ";
constexpr char kMovimentoRevenda[] = " and l.revenda = ";
constexpr char kMovimentoConta[] = " and l.conta = ";
constexpr char kDataInicial[] = " and l.ano_mes*100+l.dia >= ";
constexpr char kDataFinal[] = " and l.ano_mes*100+l.dia <= ";
constexpr char kMovimentoGrupo[] = " group by l.natureza";
constexpr char kUniao[] = " union ";
constexpr char kAnterior[] =
    " select CAST((case when e.saldo < 0 then 'C' else 'D' end) AS VARCHAR(1)) natureza,"
    "        sum(e.saldo) saldo, 'A' tipo"
    " from ctb_saldo_anterior_divisao e "
    " where e.empresa = ";
constexpr char kAnteriorRevenda[] = " and   e.revenda = ";
constexpr char kAnteriorConta[] = " and   e.conta = ";
constexpr char kAnteriorAno[] = " and   e.ano = ";
constexpr char kAnteriorGrupo[] =
    " group by CAST((case when e.saldo < 0 then 'C' else 'D' end) AS VARCHAR(1))";

// 5. The division breakdown of a movement row and of a carried-forward row.
constexpr char kDivisaoMovimento[] =
    " select l.conta,        d.centro_custo,          d.fonte,        d.categoria,         "
    "d.secao_oficina,         d.tipo_item,        d.modalidade_operacao,        "
    "d.revenda_divisao,        sum(val_divisao) saldo from ctb_lancamento_dividido d, "
    "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda = "
    "d.revenda and l.ano_mes = d.ano_mes and l.conta = '";
constexpr char kDivisaoMovimentoEmpresa[] = " and l.empresa = ";
constexpr char kDivisaoMovimentoRevenda[] = " and l.revenda = ";
constexpr char kLadoDevedor[] = " and l.natureza = 'D'";
constexpr char kLadoCredor[] = " and l.natureza = 'C'";
constexpr char kDivisaoMovimentoGrupo[] =
    " group by l.conta, d.centro_custo, d.fonte, d.categoria,"
    " d.secao_oficina, d.tipo_item, d.modalidade_operacao, d.revenda_divisao";
constexpr char kDivisaoAnterior[] =
    " select e.conta,        e.centro_custo,          e.fonte,        e.categoria,         "
    "e.secao_oficina,         e.tipo_item,        e.modalidade_operacao,        "
    "e.revenda_divisao,        sum(e.saldo) saldo from   ctb_saldo_anterior_divisao e  where  "
    "e.conta = '";
constexpr char kDivisaoAnteriorEmpresa[] = " and    e.empresa = ";
constexpr char kDivisaoAnteriorRevenda[] = " and    e.revenda = ";
constexpr char kDivisaoAnteriorAno[] = " and    e.ano = ";
constexpr char kSaldoDevedor[] = " and    e.saldo > 0 ";
constexpr char kSaldoCredor[] = " and    e.saldo < 0 ";
constexpr char kDivisaoAnteriorGrupo[] =
    " group by e.conta, e.centro_custo, e.fonte, e.categoria,"
    " e.secao_oficina, e.tipo_item, "
    " e.modalidade_operacao, e.revenda_divisao";

// 6. The entries and their division rows.
constexpr char kTabelaLancamento[] = "CTB_LANCAMENTO";
constexpr char kChaveLancamento[] = "LCTO";
constexpr char kInsertEncerramento[] =
    " insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
    "LCO_ORIGEM,            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,              "
    "VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,          LCO_OK, OPERACAO, "
    "ENCERRAMENTO_EXERCICIO)                                      values ( ";
constexpr char kInsertContrapartida[] =
    " insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
    "LCO_ORIGEM,            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,              "
    "VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,          LCO_OK, OPERACAO)           "
    "                values ( ";
constexpr char kInsertDivisao[] =
    "insert into ctb_lancamento_dividido       (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, "
    "LANCAMENTO,         REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA,       "
    "     TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO)       values(";

// 7. The totals posted into the result account.
constexpr char kTotais[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total from ctb_lancamento_dividido d, "
    "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda = "
    "d.revenda and l.ano_mes = d.ano_mes and l.empresa = ";
constexpr char kTotaisRevenda[] = " and l.revenda = ";
constexpr char kTotaisConta[] = " and l.conta = '";
constexpr char kTotaisAnoMes[] = " and l.ano_mes = ";
constexpr char kTotaisDia[] = " and l.dia = ";
constexpr char kTotaisHistorico[] = " and l.historico_padrao = ";
constexpr char kTotaisGrupo[] = " group by l.natureza";

// 8. The last calculation.
constexpr char kGravaApuracao[] = "update FAT_NUMERACAO_LIVROS  set ANOMES_APURACAO_RESULTADO = ";
constexpr char kGravaApuracaoEmpresa[] = " where EMPRESA = ";
constexpr char kGravaApuracaoRevenda[] = "   and REVENDA = ";

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
  sdsAux2.SetCommandText(kUltimaApuracao + sql::Integer(aplicacao_->Empresa) +
                         kUltimaApuracaoRevenda + sql::Integer(aplicacao_->Revenda));
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
  const std::string e = sql::Integer(empresa);
  const std::string r = sql::Integer(revenda);
  const std::string mes = sql::Integer(AnoMes);
  const std::string sep = ", ";

  // 1. The number.
  const int32_t numero = BuscaProximoNumeroTran(*conexao_, empresa, revenda, kTabelaLancamento,
                                                kChaveLancamento + mes, 1);
  const std::string n = sql::Integer(numero);

  // 2. The entry: the closing entry carries ENCERRAMENTO_EXERCICIO 'S'.
  const std::string valores = e + sep + r + sep + mes + sep + n + sep + "NULL" + sep +
                              sql::Integer(aplicacao_->CodigoUsuario) + sep + "'" + conta + "'" +
                              sep + HistoricoPadrao + sep + Dia + sep + "'" + natureza + "'" + sep +
                              sql::Amount(valor) + sep + "'O'" + sep + "NULL" + sep + "NULL" + sep +
                              "'N'";
  sdsExecutaSQL.Close();
  sdsExecutaSQL.SetCommandText(encerramento
                                   ? kInsertEncerramento + valores + sep + "NULL" + sep + "'S' )"
                                   : kInsertContrapartida + valores + sep + "NULL)");
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
    sdsExecutaSQL.SetCommandText(kInsertDivisao + sql::Integer(contador_divisao_) + sep + e + sep +
                                 r + sep + mes + sep + n + sep + InteiroOuNull(revenda_divisao) +
                                 sep + InteiroOuNull(centro_custo) + sep + InteiroOuNull(fonte) +
                                 sep + InteiroOuNull(categoria) + sep +
                                 InteiroOuNull(secao_oficina) + sep + TextoOuNull(tipo_item) + sep +
                                 TextoOuNull(modalidade) + sep + sql::Amount(saldo) + ")");
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

  const std::string e = sql::Integer(aplicacao_->Empresa);
  const std::string r = sql::Integer(aplicacao_->Revenda);
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
  const std::string periodo = kDataInicial + sql::Integer(inicio) + kDataFinal + sql::Integer(fim);
  const std::string ano_saldo = sql::Integer(AnoAtual ? ano : ano - 1);
  const bool com_anterior = !SomenteMovimento || IncluiSaldoAnterior || AnoAtual;
  const std::string exclusao_movimento = VerifRevendasDesconsiderar(lista, true, "l", "and", true) +
                                         VerifRevendasDesconsiderar(lista, false, "d", "and", true);
  const std::string exclusao_anterior = VerifRevendasDesconsiderar(lista, false, "e", "and", false);

  // 3. The result accounts.
  sdsAux2.Close();
  sdsAux2.SetCommandText(kContas + e + kContasRevenda + r + kContasDesde + kPrimeiraContaResultado +
                         kContasNivel);
  sdsAux2.Open();
  for (sdsAux2.First(); !sdsAux2.Eof(); sdsAux2.Next()) {
    const std::string conta = sdsAux2.FieldByName("CONTA").AsString();
    // Compared as a byte: a code beginning above 127 is a result account too.
    if (conta.empty() || static_cast<unsigned char>(conta[0]) <= '2' ||
        sdsAux2.FieldByName("NIVEL").AsString() != "A")
      continue;

    // 4. Its balance rows.
    std::string sql = kMovimento + e + kMovimentoRevenda + r + kMovimentoConta +
                      sql::Quoted(conta) + periodo + exclusao_movimento + kMovimentoGrupo;
    if (com_anterior)
      sql += kUniao + std::string(kAnterior) + e + kAnteriorRevenda + r + kAnteriorConta +
             sql::Quoted(conta) + exclusao_anterior + kAnteriorAno + ano_saldo + kAnteriorGrupo;
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
        quebra = kDivisaoMovimento + conta + "'" + kDivisaoMovimentoEmpresa + e +
                 kDivisaoMovimentoRevenda + r + exclusao_movimento +
                 (natureza == "C" ? kLadoDevedor : kLadoCredor) + periodo + kDivisaoMovimentoGrupo;
      else
        quebra = kDivisaoAnterior + conta + "'" + kDivisaoAnteriorEmpresa + e +
                 kDivisaoAnteriorRevenda + r + exclusao_anterior + kDivisaoAnteriorAno + ano_saldo +
                 (natureza == "C" ? kSaldoDevedor : kSaldoCredor) + kDivisaoAnteriorGrupo;
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
  if (!IniciaTransacao()) {
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
    sdsAux.SetCommandText(kTotais + e + kTotaisRevenda + r + kTotaisConta + ContaResultado + "'" +
                          kTotaisAnoMes + sql::Integer(AnoMes) + kTotaisDia + Dia +
                          kTotaisHistorico + HistoricoPadrao + exclusao_movimento + kTotaisGrupo);
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
    sdsAux.SetCommandText(kGravaApuracao + DataPSql(data, aplicacao_->TipoBanco) +
                          kGravaApuracaoEmpresa + e + kGravaApuracaoRevenda + r);
    sdsAux.ExecSQL();

    // 9. Commit, or roll back a preview.
    if (!Confirmar) {
      if (!RollbackTransacao()) throw std::runtime_error(kMsgDesfazSimulacao);
    } else if (!ComitaTransacao()) {
      // ComitaTransacao has already rolled back.
      Mensagem = kMsgConfirmaTransacao;
      return false;
    }
    return true;
  } catch (const std::exception& erro) {
    Mensagem = erro.what();
    (void)RollbackTransacao();
    return false;
  }
}

}  // namespace kvc
