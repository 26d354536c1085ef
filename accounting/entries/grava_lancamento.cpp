// Posting entries from the fixed-width interface record: GravaLancamento
// writes a credit and a debit entry linked to each other; GravaLancamentoSAP
// writes one side per call, linked through the caller's variable. Both write
// to CTB_LANCAMENTO with the same insert and complete each entry with its
// division split. Neither begins a transaction: the caller holds one.
#include <fmt/compile.h>
#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/entries/registro_interface.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

// One entry; {lco_origem} is the entry it points at or NULL.
constexpr char kInsertLancamento[] =
    " insert into CTB_LANCAMENTO"
    "                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, LCO_ORIGEM,"
    "            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,"
    "              VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,"
    "          LCO_OK, OPERACAO, REVENDA_OPERACAO)"
    "                   values ( {empresa}, {revenda}, {ano_mes}, {lancamento}, {lco_origem},"
    " {usuario}, {conta}, {historico_padrao}, {dia}, {natureza},"
    " {valor}, 'O', {historico_complementar}, {documento},"
    " 'N', NULL, {revenda})";
constexpr char kNull[] = "NULL";

// An unquoted value that the record or the caller may leave blank: a blank
// one is written as NULL rather than leaving a hole in the statement.
std::string OuNull(const std::string& valor) { return valor.empty() ? kNull : valor; }

}  // namespace

// The values of one entry, in the column order of the insert.
std::string TddmContabilidadeBD::MontaInsertLancamento(
    const std::string& empresa, const std::string& revenda, const std::string& ano_mes,
    int32_t lancamento, const std::string& lco_origem, const std::string& conta,
    const std::string& historico_padrao, const std::string& dia, const std::string& natureza,
    double valor, const std::string& historico_complementar, const std::string& documento) const {
  // The complementary history is free text written as the record carries
  // it, without escaping. The text is compiled with its names (a posting
  // builds it for every entry; looked up by name at run time, it cost four
  // times as much).
  using namespace fmt::literals;
  return fmt::format(
      FMT_COMPILE(kInsertLancamento), "empresa"_a = empresa, "revenda"_a = revenda,
      "ano_mes"_a = ano_mes, "lancamento"_a = sql::Integer(lancamento), "lco_origem"_a = lco_origem,
      "usuario"_a = sql::Integer(aplicacao_->CodigoUsuario), "conta"_a = sql::QuotedAsIs(conta),
      "historico_padrao"_a = OuNull(historico_padrao), "dia"_a = dia,
      "natureza"_a = sql::QuotedAsIs(natureza), "valor"_a = sql::Amount(valor),
      "historico_complementar"_a = sql::QuotedAsIs(historico_complementar),
      "documento"_a = OuNull(documento));
}

void TddmContabilidadeBD::ExecutaInsertLancamento(const std::string& sql) {
  sdsExecutaSQL.Close();
  sdsExecutaSQL.SetCommandText(sql);
  sdsExecutaSQL.ExecSQL();
}

// 1. Read the record (a bad record raises here, before anything is
// written). 2. Number the credit entry. 3. Insert it. 4. Split it. 5. Take the
// debit side. 6. Number the debit entry. 7. Insert it, pointing at the credit
// entry. 8. Split it.
void TddmContabilidadeBD::GravaLancamento(const std::string& registro, const std::string& empresa,
                                          const std::string& revenda, const std::string& documento,
                                          const std::string& textoDivisao, bool codigoNaConta) {
  const RegistroInterface lido = LeRegistro(registro);  // 1
  // The side mark "-" credits the first account field; anything else the
  // second.
  const bool credita_primeiro = lido.marca_lado == "-";
  const ContaDivisao credito =
      LeContaDivisao(credita_primeiro ? lido.primeiro_campo_conta : lido.segundo_campo_conta,
                     codigoNaConta, lido.codigo_divisao);

  const int32_t lancamento_credito = PegaNovoLancamento(empresa, revenda, lido.ano_mes);  // 2
  ExecutaInsertLancamento(
      MontaInsertLancamento(empresa, revenda, lido.ano_mes, lancamento_credito, kNull,  // 3
                            credito.conta, lido.historico_padrao, lido.dia, "C", lido.valor,
                            lido.historico_complementar, documento));
  (void)LancaDivisao(empresa, revenda, lido.ano_mes,  // 4
                     sql::Integer(lancamento_credito), credito.codigo_divisao, credito.conta, "C",
                     textoDivisao, lido.valor);

  const ContaDivisao debito =  // 5
      LeContaDivisao(credita_primeiro ? lido.segundo_campo_conta : lido.primeiro_campo_conta,
                     codigoNaConta, lido.codigo_divisao);
  const int32_t lancamento_debito = PegaNovoLancamento(empresa, revenda, lido.ano_mes);  // 6
  ExecutaInsertLancamento(
      MontaInsertLancamento(empresa, revenda, lido.ano_mes, lancamento_debito,  // 7
                            sql::Integer(lancamento_credito), debito.conta, lido.historico_padrao,
                            lido.dia, "D", lido.valor, lido.historico_complementar, documento));
  (void)LancaDivisao(empresa, revenda, lido.ano_mes,  // 8
                     sql::Integer(lancamento_debito), debito.codigo_divisao, debito.conta, "D",
                     textoDivisao, lido.valor);
}

// 1. Read the record. 2. Draw a number, whatever the side. 3. The first call
// of a pair (lancamentoOrigem 0) has no origin and hands its number back;
// the second points at it. 4. "C" writes the credit entry (second account
// field). 5. "D" writes the debit entry (first account field). Any other
// side writes nothing, yet the number is consumed and, on a first call,
// stored in lancamentoOrigem: callers rely on exactly this.
void TddmContabilidadeBD::GravaLancamentoSAP(const std::string& registro,
                                             const std::string& empresa, const std::string& revenda,
                                             const std::string& documento,
                                             const std::string& textoDivisao,
                                             const std::string& natureza, bool reservado,
                                             int32_t& lancamentoOrigem) {
  (void)reservado;
  const RegistroInterface lido = LeRegistro(registro);                            // 1
  const int32_t lancamento = PegaNovoLancamento(empresa, revenda, lido.ano_mes);  // 2
  std::string origem;                                                             // 3
  if (lancamentoOrigem == 0) {
    origem = kNull;
    lancamentoOrigem = lancamento;
  } else {
    origem = sql::Integer(lancamentoOrigem);
  }
  std::string conta;
  if (natureza == "C")  // 4
    conta = Apara(lido.segundo_campo_conta);
  else if (natureza == "D")  // 5
    conta = Apara(lido.primeiro_campo_conta);
  else
    return;
  // The standard-history code is read but deliberately not written.
  ExecutaInsertLancamento(MontaInsertLancamento(empresa, revenda, lido.ano_mes, lancamento, origem,
                                                conta, "", lido.dia, natureza, lido.valor,
                                                lido.historico_complementar, documento));
  (void)LancaDivisao(empresa, revenda, lido.ano_mes, sql::Integer(lancamento), lido.codigo_divisao,
                     conta, natureza, textoDivisao, lido.valor);
}

}  // namespace kvc
