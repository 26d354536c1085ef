// The balance an analytic account carries into a month: the stored year-end
// balance of the year before (or, when there is none, of the year before
// that), plus the movement of the months between, for the whole account or
// one division combination. Reads only.
#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kSped[] = "SPED";

// 4. Division mode.
constexpr char kDivisaoSelect[] = "select ";
constexpr char kDivisaoSoma[] = "sum";
constexpr char kDivisaoSaldo[] = "(coalesce(e.saldo,0)) saldo ";
constexpr char kDivisaoTabela[] = " from ctb_saldo_anterior_divisao";
constexpr char kDivisaoAlias[] = " e ";
constexpr char kDivisaoEmpresa[] = " where e.empresa = ";
constexpr char kDivisaoRevenda[] = " and e.revenda = ";
constexpr char kDivisaoConta[] = " and e.conta = '";
constexpr char kDivisaoAno[] = " and e.ano = ";

// 5. Total mode.
constexpr char kTotalSelect[] = " select saldo from ";
constexpr char kTotalEmpresa[] = " where empresa = ";
constexpr char kTotalConta[] = " and conta = '";
constexpr char kTotalAno[] = " and ano = ";

}  // namespace

// Steps 1 to 8; the numbers appear in the body.
double TddmContabilidadeBD::CalculaSaldoAnteriorContaAnalitica(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t CentroCusto, int32_t Fonte,
    int32_t Categoria, int32_t SecaoOficina, int32_t RevendaDivisao, const std::string& TipoItem,
    const std::string& ModalidadeOperacao, const std::string& Conta, bool PorDivisao,
    bool UsaMovimentoGeral, const std::string& RestricaoDivisao, bool UsaSaldoDivisaoMes,
    const std::string& RevendasDesconsiderar) {
  const std::string mes = sql::Integer(AnoMes);  // 1
  if (mes.size() < 6) throw std::invalid_argument("'" + mes + "' is not a month YYYYMM (AnoMes)");
  const int32_t y = static_cast<int32_t>(std::stol(mes.substr(0, 4)));
  const int32_t m = static_cast<int32_t>(std::stol(mes.substr(4, 2)));
  const int32_t p = y - 1;
  std::string tabela, restricao_revenda;  // 2
  DefineTabelaSaldoAnterior(Revenda, RevendasDesconsiderar, ModalidadeOperacao, tabela,
                            restricao_revenda);
  auto q = std::make_unique<db::SQLDataSet>("sdsSaldoAnteriorConta");  // 3
  q->SetConnection(conexao_);
  InstallRewriting(*q);
  double saldo = 0;
  int32_t s = 0;
  const std::string e = sql::Integer(Empresa);
  const std::string r = sql::Integer(Revenda);

  // Runs the statement of a year; returns whether it gave rows, with the
  // first row's SALDO (division mode) or the sum of all (total mode).
  auto le = [&](int32_t ano, double& valor) {
    std::string sql;
    if (PorDivisao) {
      const std::string sufixo = ModalidadeOperacao == kSped ? "_cv" : "";
      const std::string div =
          MontaRestricaoDivisao(CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                                TipoItem, ModalidadeOperacao, RestricaoDivisao);
      sql = kDivisaoSelect + std::string(RestricaoDivisao.empty() ? "" : kDivisaoSoma) +
            kDivisaoSaldo + kDivisaoTabela + sufixo + kDivisaoAlias + kDivisaoEmpresa + e +
            kDivisaoRevenda + r + kDivisaoConta + Conta + "'" + kDivisaoAno + sql::Integer(ano) +
            VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "e", "and", false) + div;
    } else {
      sql = kTotalSelect + tabela + kTotalEmpresa + e + restricao_revenda + kTotalConta + Conta +
            "'" + kTotalAno + sql::Integer(ano) +
            VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "", "and", false);
    }
    q->Close();
    q->SetCommandText(sql);
    q->Open();
    valor = 0;
    const bool tem_linhas = !q->IsEmpty();
    if (PorDivisao) {
      // Only the first row returned counts; the server's order decides which.
      if (tem_linhas) valor = q->FieldByName("SALDO").AsFloat();
    } else {
      for (q->First(); !q->Eof(); q->Next()) valor += q->FieldByName("SALDO").AsFloat();
    }
    q->Close();
    return tem_linhas;
  };

  if (le(p, saldo)) {  // 4, 5
    s = m > 1 ? static_cast<int32_t>(std::stol(fmt::format("{}01", y))) : 0;
  } else {
    le(p - 1, saldo);
    s = static_cast<int32_t>(std::stol(fmt::format("{}01", p)));
  }
  q.reset();  // 6

  if (s > 0) {  // 7
    const int32_t t = static_cast<int32_t>(
        std::stol(m > 1 ? fmt::format("{}{:02}", y, m - 1) : fmt::format("{}12", p)));
    // The Geral movement deliberately gets no exclusion list.
    saldo += UsaMovimentoGeral
                 ? CalculaMovimentoContaAnaliticaPeriodoGeral(
                       Empresa, Revenda, s, t, CentroCusto, Fonte, Categoria, SecaoOficina,
                       RevendaDivisao, TipoItem, ModalidadeOperacao, Conta, PorDivisao,
                       UsaSaldoDivisaoMes, "")
                 : CalculaMovimentoContaAnaliticaPeriodo(
                       Empresa, Revenda, s, t, CentroCusto, Fonte, Categoria, SecaoOficina,
                       RevendaDivisao, TipoItem, ModalidadeOperacao, Conta, PorDivisao,
                       RestricaoDivisao, UsaSaldoDivisaoMes, RevendasDesconsiderar);
  }
  return saldo;  // 8
}

}  // namespace kvc
