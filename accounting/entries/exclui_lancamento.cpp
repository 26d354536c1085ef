// Deletion of a selected entry with the entries generated from it, their
// division rows, the summarised balances they fed, a closing entry's
// carried-forward rows, and the audit records of the deletion.
#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

// 2. The division rows of the selected entry and of every entry generated
// from it.
constexpr char kSelectDivisoes[] =
    " select cld.ANO_MES,                \n"
    "        cld.CATEGORIA,              \n"
    "        cld.CENTRO_CUSTO,           \n"
    "        cld.EMPRESA,                \n"
    "        cld.FONTE,                  \n"
    "        cld.MODALIDADE_OPERACAO,    \n"
    "        cld.REVENDA,                \n"
    "        cld.REVENDA_DIVISAO,        \n"
    "        cld.SECAO_OFICINA,          \n"
    "        cld.TIPO_ITEM,              \n"
    "        cld.VAL_DIVISAO             \n"
    "   from CTB_LANCAMENTO_DIVIDIDO cld \n"
    "  where cld.EMPRESA = {empresa}\n"
    "    and cld.REVENDA = {revenda}\n"
    "    and cld.ANO_MES = {ano_mes}\n"
    "    and cld.LANCAMENTO in \n"
    "        (select cla.LANCAMENTO from CTB_LANCAMENTO cla \n"
    "          where cla.EMPRESA = cld.EMPRESA \n"
    "            and cla.REVENDA = cld.REVENDA \n"
    "            and cla.ANO_MES = cld.ANO_MES \n"
    "            and cla.LANCAMENTO = cld.LANCAMENTO \n"
    "            and (cla.LCO_ORIGEM = {lancamento}\n"
    "                 or cla.LANCAMENTO = {lancamento})) ";

// 3.2. The selected entry.
constexpr char kSelectLancamento[] =
    " select l.CONTA,"
    "                 l.NATUREZA,"
    "               l.ENCERRAMENTO_EXERCICIO    "
    "from CTB_LANCAMENTO l   "
    "where l.empresa    = {empresa}\n"
    "    and l.revenda    = {revenda}\n"
    "    and l.ano_mes    = {ano_mes}\n"
    "    and l.lancamento = {lancamento}";

// 4. A closing entry's carried-forward rows of its year.
constexpr char kDeleteSaldoDivisao[] =
    "DELETE FROM CTB_SALDO_ANTERIOR_DIVISAO "
    " WHERE EMPRESA = {empresa}"
    "   AND REVENDA = {revenda}"
    "   AND ANO = {ano}"
    "   AND CONTA = {conta}";
constexpr char kDeleteSaldo[] =
    "DELETE FROM CTB_SALDO_ANTERIOR "
    " WHERE EMPRESA = {empresa}"
    "   AND REVENDA = {revenda}"
    "   AND ANO = {ano}"
    "   AND CONTA = {conta}";

// 5. The division rows of the selected entry and of the entries generated
// from it.
constexpr char kDeleteDivisoes[] =
    "delete from ctb_lancamento_dividido\n"
    " where empresa = {empresa}\n"
    " and   revenda = {revenda}\n"
    " and   ano_mes = {ano_mes}\n"
    " and lancamento in\n"
    " (select cla.lancamento from ctb_lancamento cla\n"
    "  where cla.empresa = ctb_lancamento_dividido.empresa\n"
    "  and   cla.revenda = ctb_lancamento_dividido.revenda\n"
    "  and   cla.ano_mes = ctb_lancamento_dividido.ano_mes\n"
    "  and   cla.lancamento = ctb_lancamento_dividido.lancamento\n"
    "  and   (cla.lco_origem = {lancamento}\n"
    "         or cla.lancamento = {lancamento}))";

// 6. The entries generated from the selected one, then the selected entry.
constexpr char kDeleteGerados[] =
    "delete from ctb_lancamento"
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano_mes = {ano_mes}"
    " and   dia = {dia}"
    " and   lco_origem = {lancamento}";
constexpr char kDeleteSelecionado[] =
    "delete from ctb_lancamento"
    " where empresa = {empresa}"
    " and   revenda = {revenda}"
    " and   ano_mes = {ano_mes}"
    " and   dia = {dia}"
    " and   lancamento = {lancamento}";

// 9. The audit records.
constexpr char kSelectLog[] =
    "SELECT LOG_CADASTROS"
    " FROM GER_LOG_CADASTROS"
    " WHERE LOG_CADASTROS = {log}";
constexpr char kInsertLog[] =
    "INSERT INTO GER_LOG_CADASTROS (LOG_CADASTROS, EMPRESA, REVENDA, USUARIO, DTA_ALTERACAO,  TIPO_ALTERACAO, TABELA) "
    " VALUES ({log},{empresa},{revenda},{usuario},{data_hora},'E',{tabela})";
constexpr char kInsertLogItem[] =
    "INSERT INTO GER_LOG_CADASTROS_ITENS (LOG_CADASTROS, CAMPO, VALOR_ANTERIOR, VALOR_ATUAL, CONTEUDO_CHAVE) "
    " VALUES ({log},'LANCAMENTO',{lancamento},'EXCLUIDO',{lancamento})";

}  // namespace

// Steps 1 to 10; the numbers appear in the body.
void TddmContabilidadeBD::ExcluiLancamentoSelecionado(int32_t Lancamento, const std::string& AnoMes,
                                                      const std::string& Dia,
                                                      IProgressCallback* callback) {
  const std::string empresa = sql::Integer(aplicacao_->Empresa);
  const std::string revenda = sql::Integer(aplicacao_->Revenda);
  const std::string lancamento = sql::Integer(Lancamento);
  bool falhou = false;  // 1
  try {
    // Whether the begin succeeded is not asked: the deletion ends the
    // connection's transaction either way.
    db::TransactionGuard transacao =
        NovaTransacao(db::TransactionGuard::WhenBeginFails::kFinishAnyway);
    sdsExcluiLanc.Close();  // 2
    sdsExcluiLanc.SetCommandText(
        fmt::format(kSelectDivisoes, fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                    fmt::arg("ano_mes", AnoMes), fmt::arg("lancamento", lancamento)));
    sdsExcluiLanc.Open();

    std::string encerramento;
    std::string conta_encerramento;
    for (sdsExcluiLanc.First(); !sdsExcluiLanc.Eof(); sdsExcluiLanc.Next()) {  // 3
      auto inteiro = [this](const char* campo) {                               // 3.1
        const db::Value& coluna = sdsExcluiLanc.FieldByName(campo);
        return coluna.IsNull() ? -1 : static_cast<int32_t>(coluna.AsInteger());
      };
      const std::string tipo_item = sdsExcluiLanc.FieldByName("TIPO_ITEM").AsString();
      const std::string modalidade = sdsExcluiLanc.FieldByName("MODALIDADE_OPERACAO").AsString();
      const int32_t revenda_divisao = inteiro("REVENDA_DIVISAO");
      const int32_t centro_custo = inteiro("CENTRO_CUSTO");
      const int32_t fonte = inteiro("FONTE");
      const int32_t categoria = inteiro("CATEGORIA");
      const int32_t secao_oficina = inteiro("SECAO_OFICINA");
      const int32_t empresa_linha = inteiro("EMPRESA");
      const int32_t revenda_linha = inteiro("REVENDA");
      const int32_t ano_mes_linha = inteiro("ANO_MES");
      const double valor = sdsExcluiLanc.FieldByName("VAL_DIVISAO").AsFloat();

      // 3.2. Always the selected entry: every row is reversed with its
      // account and nature, a simplification kept as it is.
      sdsAux3.Close();
      sdsAux3.SetCommandText(fmt::format(kSelectLancamento, fmt::arg("empresa", empresa),
                                         fmt::arg("revenda", revenda), fmt::arg("ano_mes", AnoMes),
                                         fmt::arg("lancamento", lancamento)));
      sdsAux3.Open();
      const std::string conta = sdsAux3.FieldByName("CONTA").AsString();
      const std::string natureza = sdsAux3.FieldByName("NATUREZA").AsString();
      if (sdsAux3.FieldByName("ENCERRAMENTO_EXERCICIO").AsString() == "S") {  // 3.3
        encerramento = "S";
        conta_encerramento = conta;
      }
      sdsAux3.Close();

      if (!AtualizaSaldoSumarizado(*conexao_, "L", "E", "", "", conta, natureza,  // 3.4
                                   empresa_linha, revenda_linha, ano_mes_linha, -1, -1, -1, -1, -1,
                                   valor))
        falhou = true;
      if (!AtualizaSaldoSumarizado(*conexao_, "D", "E", tipo_item, modalidade, conta,  // 3.5
                                   natureza, empresa_linha, revenda_linha, ano_mes_linha,
                                   revenda_divisao, centro_custo, fonte, categoria, secao_oficina,
                                   valor))
        falhou = true;
    }
    sdsExcluiLanc.Close();

    if (encerramento == "S") {  // 4
      const std::string ano = AnoMes.substr(0, AnoMes.size() >= 2 ? AnoMes.size() - 2 : 0);
      const std::string conta = sql::Quoted(conta_encerramento);
      sdsAux.Close();
      sdsAux.SetCommandText(fmt::format(kDeleteSaldoDivisao, fmt::arg("empresa", empresa),
                                        fmt::arg("revenda", revenda), fmt::arg("ano", ano),
                                        fmt::arg("conta", conta)));
      sdsAux.ExecSQL();
      sdsAux.SetCommandText(fmt::format(kDeleteSaldo, fmt::arg("empresa", empresa),
                                        fmt::arg("revenda", revenda), fmt::arg("ano", ano),
                                        fmt::arg("conta", conta)));
      sdsAux.ExecSQL();
    }

    sdsAux2.Close();  // 5
    sdsAux2.SetCommandText(fmt::format(kDeleteDivisoes, fmt::arg("empresa", empresa),
                                       fmt::arg("revenda", revenda), fmt::arg("ano_mes", AnoMes),
                                       fmt::arg("lancamento", lancamento)));
    sdsAux2.ExecSQL();

    sdsAux2.SetCommandText(fmt::format(kDeleteGerados, fmt::arg("empresa", empresa),  // 6
                                       fmt::arg("revenda", revenda), fmt::arg("ano_mes", AnoMes),
                                       fmt::arg("dia", Dia), fmt::arg("lancamento", lancamento)));
    sdsAux2.ExecSQL();
    sdsAux2.SetCommandText(fmt::format(kDeleteSelecionado, fmt::arg("empresa", empresa),
                                       fmt::arg("revenda", revenda), fmt::arg("ano_mes", AnoMes),
                                       fmt::arg("dia", Dia), fmt::arg("lancamento", lancamento)));
    sdsAux2.ExecSQL();

    if (falhou)  // 7
      (void)transacao.Rollback();
    else
      (void)transacao.Commit();
  } catch (const std::exception&) {
    // 8. A database failure is rolled back (by the guard, on the way out of
    // the block) and swallowed; the flag stays as it was, so the audit
    // records below are still written. Intended: the audit log also records
    // an attempted deletion.
  }

  if (!falhou) {  // 9
    for (const char* tabela : {"CTB_LANCAMENTO", "CTB_LANCAMENTO_DIVIDIDO"}) {
      int32_t numero =  // 9.1
          BuscaProximoNumero(1, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", callback, 1);
      for (;;) {
        sdsExcluiLanc.Close();
        sdsExcluiLanc.SetCommandText(
            fmt::format(kSelectLog, fmt::arg("log", sql::Integer(numero))));
        sdsExcluiLanc.Open();
        const bool existe = !sdsExcluiLanc.IsEmpty();
        sdsExcluiLanc.Close();
        if (!existe) break;
        numero = BuscaProximoNumero(1, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", callback, 1);
      }
      const std::string agora =  // 9.2
          DataHoraPSql(DataHoraBD(false, true), aplicacao_->TipoBanco);
      sdsExcluiLanc.SetCommandText(fmt::format(  // 9.3
          kInsertLog, fmt::arg("log", sql::Integer(numero)), fmt::arg("empresa", empresa),
          fmt::arg("revenda", revenda),
          fmt::arg("usuario", sql::Integer(aplicacao_->CodigoUsuario)),
          fmt::arg("data_hora", agora), fmt::arg("tabela", sql::Quoted(tabela))));
      sdsExcluiLanc.ExecSQL();
      // 9.4: the entry number is written as text in both value columns.
      sdsExcluiLanc.SetCommandText(
          fmt::format(kInsertLogItem, fmt::arg("log", sql::Integer(numero)),
                      fmt::arg("lancamento", sql::QuotedAsIs(lancamento))));
      sdsExcluiLanc.ExecSQL();
    }
  }

  sdsAux.Close();  // 10
  sdsAux2.Close();
  sdsAux3.Close();
}

}  // namespace kvc
