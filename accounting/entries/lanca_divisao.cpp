// The division split of an entry just written: the account's division
// settings decide whether the entry keeps its cost centre, the summarised
// balances are told, and one division row carries the whole amount.
#include <stdexcept>

#include <fmt/compile.h>
#include <fmt/format.h>

#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

// 2. The account's division settings.
constexpr char kSelectContaDivisao[] =
    " select coalesce(NIVEL_DIVISAO,0) NIVEL_DIVISAO,"
    "         LANCAMENTO_DIVIDIDO,"
    "         CONTA    "
    " from CTB_CONTA   "
    " where EMPRESA = {empresa}"
    "     and REVENDA = {revenda}"
    "     and CONTA = {conta}";

// 3. The division types up to the account's division level.
constexpr char kSelectTipoDivisao[] =
    "select TIPO_DIVISAO "
    " from CTB_DIVISAO_CONTABIL "
    " where  EMPRESA = {empresa}"
    " and    REVENDA = {revenda}"
    " and    NIVEL <= {nivel}";

// 7. The one division row; {centro_custo} is the cost centre or NULL.
constexpr char kInsertDivisao[] =
    "insert into ctb_lancamento_dividido"
    "                        (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, LANCAMENTO,"
    "         CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA,"
    "            TIPO_ITEM, MODALIDADE_OPERACAO, REVENDA_DIVISAO,"
    "          REVENDA_ORIGEM,"
    "         VAL_DIVISAO)"
    "       values ( {sequencia}, {empresa}, {revenda}, {ano_mes}, {lancamento},"
    " {centro_custo}, NULL, NULL, NULL,"
    " NULL, NULL, {revenda_divisao},"
    " {revenda_origem},"
    " {valor})";

constexpr char kTipoCentroCusto[] = "C";
constexpr char kSemCentroCusto[] = "NULL";

}  // namespace

// Steps 1 to 8; the numbers appear in the body.
bool TddmContabilidadeBD::LancaDivisao(const std::string& empresa, const std::string& revenda,
                                       const std::string& anoMes, const std::string& lancamento,
                                       const std::string& codigoDivisao, const std::string& conta,
                                       const std::string& natureza, const std::string& textoDivisao,
                                       double valor) {
  bool resultado = true;  // 1
  int32_t centro_custo = -1;
  std::string texto_centro_custo = kSemCentroCusto;
  if (!codigoDivisao.empty()) {
    centro_custo = StrToInt(codigoDivisao, "codigoDivisao");
    texto_centro_custo = codigoDivisao;
  }

  // The texts of steps 2 and 7, built for every entry of a posting, are
  // compiled with their names.
  using namespace fmt::literals;
  sdsConsultaLoc1.Close();  // 2
  sdsConsultaLoc1.SetCommandText(fmt::format(FMT_COMPILE(kSelectContaDivisao),
                                             "empresa"_a = empresa, "revenda"_a = revenda,
                                             "conta"_a = sql::Quoted(conta)));
  sdsConsultaLoc1.Open();
  // An account that does not exist reads as level 0 with no flag.
  const int64_t nivel = sdsConsultaLoc1.FieldByName("NIVEL_DIVISAO").AsInteger();
  const std::string dividido = sdsConsultaLoc1.FieldByName("LANCAMENTO_DIVIDIDO").AsString();
  const std::string codigo_conta = sdsConsultaLoc1.FieldByName("CONTA").AsString();
  const std::string grupo = codigo_conta.substr(0, 1);
  sdsConsultaLoc1.Close();

  if (nivel > 0) {  // 3
    sdsConsultaLoc1.SetCommandText(fmt::format(kSelectTipoDivisao, fmt::arg("empresa", empresa),
                                               fmt::arg("revenda", revenda),
                                               fmt::arg("nivel", sql::Integer(nivel))));
    sdsConsultaLoc1.Open();
    bool tem_centro_custo = false;
    for (sdsConsultaLoc1.First(); !sdsConsultaLoc1.Eof(); sdsConsultaLoc1.Next())
      tem_centro_custo = tem_centro_custo ||
                         sdsConsultaLoc1.FieldByName("TIPO_DIVISAO").AsString() == kTipoCentroCusto;
    if (!tem_centro_custo) {
      centro_custo = -1;
      texto_centro_custo = kSemCentroCusto;
    }
  }
  // 4. Balance-sheet accounts keep a cost centre only when always divided.
  if (dividido != "S" && (grupo == "1" || grupo == "2")) {
    centro_custo = -1;
    texto_centro_custo = kSemCentroCusto;
  }
  sdsConsultaLoc1.Close();

  db::Connection& conexao = *sdsExecutaSQL.GetConnection();
  const int32_t codigo_empresa = StrToInt(empresa, "empresa");
  const int32_t codigo_revenda = StrToInt(revenda, "revenda");
  const int32_t codigo_ano_mes = StrToInt(anoMes, "anoMes");
  if (!AtualizaSaldoSumarizado(conexao, "L", "I", "", "", conta, natureza, codigo_empresa,  // 5
                               codigo_revenda, codigo_ano_mes, -1, -1, -1, -1, -1, valor))
    return false;
  if (!AtualizaSaldoSumarizado(conexao, "D", "I", "", "", conta, natureza, codigo_empresa,  // 6
                               codigo_revenda, codigo_ano_mes, centro_custo, -1, -1, -1,
                               StrToInt(textoDivisao, "textoDivisao"), valor))
    return false;

  ++contador_divisao_;  // 7
  sdsExecutaSQL.Close();
  sdsExecutaSQL.SetCommandText(
      fmt::format(FMT_COMPILE(kInsertDivisao), "sequencia"_a = sql::Integer(contador_divisao_),
                  "empresa"_a = empresa, "revenda"_a = revenda, "ano_mes"_a = anoMes,
                  "lancamento"_a = lancamento, "centro_custo"_a = texto_centro_custo,
                  "revenda_divisao"_a = textoDivisao,
                  "revenda_origem"_a = sql::Integer(aplicacao_->RevendaAplicacao),
                  "valor"_a = sql::Amount(valor)));
  try {
    sdsExecutaSQL.ExecSQL();
  } catch (const std::exception&) {
    // 8. Only the insert is guarded: its failure is the false result, and
    // the summarised balances of steps 5 and 6 stay updated.
    resultado = false;
  }
  return resultado;
}

}  // namespace kvc
