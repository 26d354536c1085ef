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

// 4. Division mode: the account's carried-forward division rows of a year
// (their sum when a division restriction is given).
constexpr char kSaldoDivisao[] =
    "select {soma}(coalesce(e.saldo,0)) saldo "
    " from ctb_saldo_anterior_divisao{sufixo} e "
    " where e.empresa = {empresa}"
    " and e.revenda = {revenda}"
    " and e.conta = {conta}"
    " and e.ano = {ano}{revendas_desconsiderar}{restricao_divisao}";

// 5. Total mode: the account's carried-forward rows of a year, in the table
// and with the dealership restriction that DefineTabelaSaldoAnterior chose.
constexpr char kSaldoTotal[] =
    " select saldo"
    " from {tabela}"
    " where empresa = {empresa}{restricao_revenda}"
    " and conta = {conta}"
    " and ano = {ano}{revendas_desconsiderar}";

}  // namespace

double TddmContabilidadeBD::SaldoAnteriorDaConta(const ContaAnalitica& conta, int32_t ano_mes,
                                                 bool usa_movimento_geral) {
  return CalculaSaldoAnteriorContaAnalitica(
      conta.empresa, conta.revenda, ano_mes, conta.centro_custo, conta.fonte, conta.categoria,
      conta.secao_oficina, conta.revenda_divisao, conta.tipo_item, conta.modalidade_operacao,
      conta.conta, conta.por_divisao, usa_movimento_geral, conta.restricao_divisao,
      conta.usa_saldo_divisao_mes, conta.revendas_desconsiderar);
}

double TddmContabilidadeBD::MovimentoDaConta(const ContaAnalitica& conta, int32_t ano_mes_inicial,
                                             int32_t ano_mes_final, bool usa_movimento_geral) {
  if (usa_movimento_geral)
    return CalculaMovimentoContaAnaliticaPeriodoGeral(
        conta.empresa, conta.revenda, ano_mes_inicial, ano_mes_final, conta.centro_custo,
        conta.fonte, conta.categoria, conta.secao_oficina, conta.revenda_divisao, conta.tipo_item,
        conta.modalidade_operacao, conta.conta, conta.por_divisao, conta.usa_saldo_divisao_mes,
        conta.revendas_desconsiderar);
  return CalculaMovimentoContaAnaliticaPeriodo(
      conta.empresa, conta.revenda, ano_mes_inicial, ano_mes_final, conta.centro_custo, conta.fonte,
      conta.categoria, conta.secao_oficina, conta.revenda_divisao, conta.tipo_item,
      conta.modalidade_operacao, conta.conta, conta.por_divisao, conta.restricao_divisao,
      conta.usa_saldo_divisao_mes, conta.revendas_desconsiderar);
}

// Steps 1 to 8; the numbers appear in the body.
double TddmContabilidadeBD::CalculaSaldoAnteriorContaAnalitica(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t CentroCusto, int32_t Fonte,
    int32_t Categoria, int32_t SecaoOficina, int32_t RevendaDivisao, const std::string& TipoItem,
    const std::string& ModalidadeOperacao, const std::string& Conta, bool PorDivisao,
    bool UsaMovimentoGeral, const std::string& RestricaoDivisao, bool UsaSaldoDivisaoMes,
    const std::string& RevendasDesconsiderar) {
  const std::string mes = sql::Integer(AnoMes);  // 1
  if (mes.size() < 6) throw std::invalid_argument("'" + mes + "' is not a month YYYYMM (AnoMes)");
  const int32_t ano = static_cast<int32_t>(std::stol(mes.substr(0, 4)));
  const int32_t mes_do_ano = static_cast<int32_t>(std::stol(mes.substr(4, 2)));
  const int32_t ano_anterior = ano - 1;
  std::string tabela, restricao_revenda;  // 2
  DefineTabelaSaldoAnterior(Revenda, RevendasDesconsiderar, ModalidadeOperacao, tabela,
                            restricao_revenda);
  auto consulta = std::make_unique<db::SQLDataSet>("sdsSaldoAnteriorConta");  // 3
  consulta->SetConnection(conexao_);
  InstallRewriting(*consulta);
  double saldo = 0;
  int32_t primeiro_mes = 0;
  const std::string empresa = sql::Integer(Empresa);
  const std::string revenda = sql::Integer(Revenda);

  // Runs the statement of a year; returns whether it gave rows, with the
  // first row's SALDO (division mode) or the sum of all (total mode).
  auto le = [&](int32_t ano_do_saldo, double& valor) {
    std::string sql;
    if (PorDivisao) {
      sql = fmt::format(
          kSaldoDivisao, fmt::arg("soma", RestricaoDivisao.empty() ? "" : "sum"),
          fmt::arg("sufixo", ModalidadeOperacao == kSped ? "_cv" : ""),
          fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
          fmt::arg("conta", sql::QuotedAsIs(Conta)), fmt::arg("ano", sql::Integer(ano_do_saldo)),
          fmt::arg("revendas_desconsiderar",
                   VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "e", "and", false)),
          fmt::arg(
              "restricao_divisao",
              MontaRestricaoDivisao(CentroCusto, Fonte, Categoria, SecaoOficina, RevendaDivisao,
                                    TipoItem, ModalidadeOperacao, RestricaoDivisao)));
    } else {
      sql = fmt::format(
          kSaldoTotal, fmt::arg("tabela", tabela), fmt::arg("empresa", empresa),
          fmt::arg("restricao_revenda", restricao_revenda),
          fmt::arg("conta", sql::QuotedAsIs(Conta)), fmt::arg("ano", sql::Integer(ano_do_saldo)),
          fmt::arg("revendas_desconsiderar",
                   VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "", "and", false)));
    }
    consulta->Close();
    consulta->SetCommandText(sql);
    consulta->Open();
    valor = 0;
    const bool tem_linhas = !consulta->IsEmpty();
    if (PorDivisao) {
      // Only the first row returned counts; the server's order decides which.
      if (tem_linhas) valor = consulta->FieldByName("SALDO").AsFloat();
    } else {
      for (consulta->First(); !consulta->Eof(); consulta->Next())
        valor += consulta->FieldByName("SALDO").AsFloat();
    }
    consulta->Close();
    return tem_linhas;
  };

  if (le(ano_anterior, saldo)) {  // 4, 5
    primeiro_mes = mes_do_ano > 1 ? static_cast<int32_t>(std::stol(fmt::format("{}01", ano))) : 0;
  } else {
    le(ano_anterior - 1, saldo);
    primeiro_mes = static_cast<int32_t>(std::stol(fmt::format("{}01", ano_anterior)));
  }
  consulta.reset();  // 6

  if (primeiro_mes > 0) {  // 7
    const int32_t ultimo_mes =
        static_cast<int32_t>(std::stol(mes_do_ano > 1 ? fmt::format("{}{:02}", ano, mes_do_ano - 1)
                                                      : fmt::format("{}12", ano_anterior)));
    saldo += MovimentoDaConta(
        {.empresa = Empresa,
         .revenda = Revenda,
         .conta = Conta,
         .por_divisao = PorDivisao,
         .centro_custo = CentroCusto,
         .fonte = Fonte,
         .categoria = Categoria,
         .secao_oficina = SecaoOficina,
         .revenda_divisao = RevendaDivisao,
         .tipo_item = TipoItem,
         .modalidade_operacao = ModalidadeOperacao,
         .restricao_divisao = RestricaoDivisao,
         .usa_saldo_divisao_mes = UsaSaldoDivisaoMes,
         // The Geral movement deliberately gets no exclusion list.
         .revendas_desconsiderar = UsaMovimentoGeral ? std::string() : RevendasDesconsiderar},
        primeiro_mes, ultimo_mes, UsaMovimentoGeral);
  }
  return saldo;  // 8
}

}  // namespace kvc
