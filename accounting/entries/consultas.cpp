// Read-only lookups of the entry screens: a cost centre's description and
// the free-text item lines of the invoice behind an entry.
#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

// A cost centre's description ({somente_ativos}: the active-only condition
// below, or nothing).
constexpr char kSelectCentroCusto[] =
    " select DES_CENTRO_CUSTO"
    " from CTB_CENTRO_CUSTO "
    " where  EMPRESA = {empresa}"
    " and    REVENDA = {revenda}"
    " and    CENTRO_CUSTO = {centro_custo}{somente_ativos}";
constexpr char kSomenteAtivos[] = " and coalesce(INATIVO_CONSULTAS,'N') <> 'S' ";

// The free-text item lines of the invoice behind an entry, in their order.
constexpr char kSelectItensNota[] =
    " select FMDL.DESCRICAO, FMDL.ORDEM   "
    " from FAT_MOVIMENTO_DESC_LIVRE FMDL "
    " inner join FAT_MOVIMENTO_CAPA FMC on (FMC.EMPRESA = FMDL.EMPRESA                                  "
    " and  FMC.REVENDA = FMDL.REVENDA                                  "
    " and  FMC.NUMERO_NOTA_FISCAL = FMDL.NUMERO_NOTA_FISCAL                                  "
    " and  FMC.SERIE_NOTA_FISCAL = FMDL.SERIE_NOTA_FISCAL                                  "
    " and  FMC.TIPO_TRANSACAO = FMDL.TIPO_TRANSACAO                                  "
    " and  FMC.CONTADOR = FMDL.CONTADOR) "
    " inner join CTB_LANCAMENTO CTBL on (FMC.EMPRESA = CTBL.EMPRESA                               "
    " and  FMC.REVENDA = CTBL.REVENDA_OPERACAO                               "
    " and  FMC.OPERACAO = CTBL.OPERACAO                               "
    " and  FMC.NUMERO_NOTA_FISCAL = CTBL.DOCUMENTO) "
    " inner join FAT_TIPO_TRANSACAO FTT on (FTT.TIPO_TRANSACAO = FMC.TIPO_TRANSACAO) "
    " where FTT.UTILIZA_DESPESAS = 'S'   "
    " and CTBL.EMPRESA = {empresa}  "
    " and CTBL.REVENDA = {revenda}  "
    " and CTBL.LANCAMENTO = {lancamento}  "
    " and CTBL.ANO_MES = {ano_mes}"
    " order by FMDL.ORDEM ";

constexpr char kRetorno = '\r';

}  // namespace

std::string TddmContabilidadeBD::BuscaDescricaoCCusto(int32_t empresa, int32_t revenda,
                                                      int32_t centroCusto, bool somenteAtivos) {
  std::string resultado;
  sdsAux.Close();
  const std::string sql =
      fmt::format(kSelectCentroCusto, fmt::arg("empresa", sql::Integer(empresa)),
                  fmt::arg("revenda", sql::Integer(revenda)),
                  fmt::arg("centro_custo", sql::Integer(centroCusto)),
                  fmt::arg("somente_ativos", somenteAtivos ? kSomenteAtivos : ""));
  sdsAux.SetCommandText(sql);
  sdsAux.Open();
  // Only the first row counts; a null description is empty text.
  if (!sdsAux.IsEmpty()) resultado = sdsAux.Field(0).AsString();
  sdsAux.Close();
  return resultado;
}

std::string TddmContabilidadeBD::BuscaItensNotaDescricaoLivre(int32_t empresa, int32_t revenda,
                                                              int32_t anoMes, int32_t lancamento,
                                                              const std::string& reservado) {
  (void)reservado;
  std::string resultado;
  sdsAux3.Close();
  sdsAux3.SetCommandText(fmt::format(kSelectItensNota, fmt::arg("empresa", sql::Integer(empresa)),
                                     fmt::arg("revenda", sql::Integer(revenda)),
                                     fmt::arg("lancamento", sql::Integer(lancamento)),
                                     fmt::arg("ano_mes", sql::Integer(anoMes))));
  sdsAux3.Open();
  // Each line, empty ones too, ends with a carriage return and no line feed;
  // invoices matched twice repeat their lines.
  for (sdsAux3.First(); !sdsAux3.Eof(); sdsAux3.Next()) {
    resultado += sdsAux3.FieldByName("DESCRICAO").AsString();
    resultado += kRetorno;
  }
  sdsAux3.Close();
  return resultado;
}

}  // namespace kvc
