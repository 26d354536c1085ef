// Posting entries from the fixed-width interface record: GravaLancamento
// writes a credit and a debit entry linked to each other; GravaLancamentoSAP
// writes one side per call, linked through the caller's variable. Both write
// to CTB_LANCAMENTO with the same insert and complete each entry with its
// division split. Neither begins a transaction: the caller holds one.
#include "accounting/db/sql_format.h"
#include "accounting/entries/registro_interface.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kInsertLancamento[] =
    " insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
    "LCO_ORIGEM,            USUARIO, CONTA, HISTORICO_PADRAO, DIA, NATUREZA,              "
    "VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,          LCO_OK, OPERACAO, "
    "REVENDA_OPERACAO)                   values ( ";
constexpr char kNull[] = "NULL";
constexpr char kSeparador[] = ", ";

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
  std::string sql = kInsertLancamento;
  sql += empresa + kSeparador;
  sql += revenda + kSeparador;
  sql += ano_mes + kSeparador;
  sql += sql::Integer(lancamento) + kSeparador;
  sql += lco_origem + kSeparador;
  sql += sql::Integer(aplicacao_->CodigoUsuario) + kSeparador;
  sql += sql::QuotedAsIs(conta) + kSeparador;
  sql += OuNull(historico_padrao) + kSeparador;
  sql += dia + kSeparador;
  sql += sql::QuotedAsIs(natureza) + kSeparador;
  sql += sql::Amount(valor) + kSeparador;
  sql += "'O'" + std::string(kSeparador);
  // The complementary history is free text written as the record carries
  // it, without escaping.
  sql += sql::QuotedAsIs(historico_complementar) + kSeparador;
  sql += OuNull(documento) + kSeparador;
  sql += "'N'" + std::string(kSeparador);
  sql += std::string(kNull) + kSeparador;
  sql += revenda;
  sql += ")";
  return sql;
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
  const RegistroInterface r = LeRegistro(registro);  // 1
  // The side mark "-" credits the first account field; anything else the
  // second.
  const bool credita_primeiro = r.marca_lado == "-";
  const ContaDivisao credito =
      LeContaDivisao(credita_primeiro ? r.primeiro_campo_conta : r.segundo_campo_conta,
                     codigoNaConta, r.codigo_divisao);

  const int32_t n1 = PegaNovoLancamento(empresa, revenda, r.ano_mes);                    // 2
  ExecutaInsertLancamento(MontaInsertLancamento(empresa, revenda, r.ano_mes, n1, kNull,  // 3
                                                credito.conta, r.historico_padrao, r.dia, "C",
                                                r.valor, r.historico_complementar, documento));
  (void)LancaDivisao(empresa, revenda, r.ano_mes, sql::Integer(n1), credito.codigo_divisao,  // 4
                     credito.conta, "C", textoDivisao, r.valor);

  const ContaDivisao debito =  // 5
      LeContaDivisao(credita_primeiro ? r.segundo_campo_conta : r.primeiro_campo_conta,
                     codigoNaConta, r.codigo_divisao);
  const int32_t n2 = PegaNovoLancamento(empresa, revenda, r.ano_mes);             // 6
  ExecutaInsertLancamento(MontaInsertLancamento(empresa, revenda, r.ano_mes, n2,  // 7
                                                sql::Integer(n1), debito.conta, r.historico_padrao,
                                                r.dia, "D", r.valor, r.historico_complementar,
                                                documento));
  (void)LancaDivisao(empresa, revenda, r.ano_mes, sql::Integer(n2), debito.codigo_divisao,  // 8
                     debito.conta, "D", textoDivisao, r.valor);
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
  const RegistroInterface r = LeRegistro(registro);                   // 1
  const int32_t n = PegaNovoLancamento(empresa, revenda, r.ano_mes);  // 2
  std::string origem;                                                 // 3
  if (lancamentoOrigem == 0) {
    origem = kNull;
    lancamentoOrigem = n;
  } else {
    origem = sql::Integer(lancamentoOrigem);
  }
  std::string conta;
  if (natureza == "C")  // 4
    conta = Apara(r.segundo_campo_conta);
  else if (natureza == "D")  // 5
    conta = Apara(r.primeiro_campo_conta);
  else
    return;
  // The standard-history code is read but deliberately not written.
  ExecutaInsertLancamento(MontaInsertLancamento(empresa, revenda, r.ano_mes, n, origem, conta, "",
                                                r.dia, natureza, r.valor, r.historico_complementar,
                                                documento));
  (void)LancaDivisao(empresa, revenda, r.ano_mes, sql::Integer(n), r.codigo_divisao, conta,
                     natureza, textoDivisao, r.valor);
}

}  // namespace kvc
