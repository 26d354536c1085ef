// Deletion of a selected entry with the entries generated from it, their
// division rows, the summarised balances they fed, a closing entry's
// carried-forward rows, and the audit records of the deletion.
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/services/zorutils.h"

namespace kvc {
namespace {

constexpr char kLf[] = "\n";

// The division rows of the selected entry and of every entry generated from
// it; the pieces join around E, R, AnoMes and N (twice).
constexpr char kSelectDivisoes[] =
    " select cld.ANO_MES,                \n        cld.CATEGORIA,              \n        "
    "cld.CENTRO_CUSTO,           \n        cld.EMPRESA,                \n        cld.FONTE,     "
    "             \n        cld.MODALIDADE_OPERACAO,    \n        cld.REVENDA,                \n "
    "       cld.REVENDA_DIVISAO,        \n        cld.SECAO_OFICINA,          \n        "
    "cld.TIPO_ITEM,              \n        cld.VAL_DIVISAO             \n   from "
    "CTB_LANCAMENTO_DIVIDIDO cld \n  where cld.EMPRESA = ";
constexpr char kSelectDivisoesRevenda[] = "    and cld.REVENDA = ";
constexpr char kSelectDivisoesAnoMes[] = "    and cld.ANO_MES = ";
constexpr char kSelectDivisoesLancamento[] =
    "    and cld.LANCAMENTO in \n"
    "        (select cla.LANCAMENTO from CTB_LANCAMENTO cla \n"
    "          where cla.EMPRESA = cld.EMPRESA \n"
    "            and cla.REVENDA = cld.REVENDA \n"
    "            and cla.ANO_MES = cld.ANO_MES \n"
    "            and cla.LANCAMENTO = cld.LANCAMENTO \n"
    "            and (cla.LCO_ORIGEM = ";
constexpr char kSelectDivisoesOu[] = "                 or cla.LANCAMENTO = ";
constexpr char kSelectDivisoesFim[] = ")) ";

// The selected entry.
constexpr char kSelectLancamento[] =
    " select l.CONTA,                 l.NATUREZA,               l.ENCERRAMENTO_EXERCICIO    "
    "from CTB_LANCAMENTO l   where l.empresa    = ";
constexpr char kSelectLancamentoRevenda[] = "    and l.revenda    = ";
constexpr char kSelectLancamentoAnoMes[] = "    and l.ano_mes    = ";
constexpr char kSelectLancamentoNumero[] = "    and l.lancamento = ";

constexpr char kDeleteSaldoDivisao[] = "DELETE FROM CTB_SALDO_ANTERIOR_DIVISAO  WHERE EMPRESA = ";
constexpr char kDeleteSaldo[] = "DELETE FROM CTB_SALDO_ANTERIOR  WHERE EMPRESA = ";
constexpr char kDeleteSaldoRevenda[] = "   AND REVENDA = ";
constexpr char kDeleteSaldoAno[] = "   AND ANO = ";
constexpr char kDeleteSaldoConta[] = "   AND CONTA = ";

constexpr char kDeleteDivisoes[] = "delete from ctb_lancamento_dividido\n where empresa = ";
constexpr char kDeleteDivisoesRevenda[] = " and   revenda = ";
constexpr char kDeleteDivisoesAnoMes[] = " and   ano_mes = ";
constexpr char kDeleteDivisoesLancamento[] =
    " and lancamento in\n"
    " (select cla.lancamento from ctb_lancamento cla\n"
    "  where cla.empresa = ctb_lancamento_dividido.empresa\n"
    "  and   cla.revenda = ctb_lancamento_dividido.revenda\n"
    "  and   cla.ano_mes = ctb_lancamento_dividido.ano_mes\n"
    "  and   cla.lancamento = ctb_lancamento_dividido.lancamento\n"
    "  and   (cla.lco_origem = ";
constexpr char kDeleteDivisoesOu[] = "         or cla.lancamento = ";
constexpr char kDeleteDivisoesFim[] = "))";

constexpr char kDeleteLancamentos[] = "delete from ctb_lancamento where empresa = ";
constexpr char kDeleteLancamentosRevenda[] = " and   revenda = ";
constexpr char kDeleteLancamentosAnoMes[] = " and   ano_mes = ";
constexpr char kDeleteLancamentosDia[] = " and   dia = ";
constexpr char kDeleteLancamentosGerados[] = " and   lco_origem = ";
constexpr char kDeleteLancamentosSelecionado[] = " and   lancamento = ";

constexpr char kSelectLog[] = "SELECT LOG_CADASTROS FROM GER_LOG_CADASTROS WHERE LOG_CADASTROS = ";
constexpr char kInsertLog[] =
    "INSERT INTO GER_LOG_CADASTROS (LOG_CADASTROS, EMPRESA, REVENDA, USUARIO, DTA_ALTERACAO,  "
    "TIPO_ALTERACAO, TABELA)  VALUES (";
constexpr char kInsertLogItem[] =
    "INSERT INTO GER_LOG_CADASTROS_ITENS (LOG_CADASTROS, CAMPO, VALOR_ANTERIOR, VALOR_ATUAL, "
    "CONTEUDO_CHAVE)  VALUES (";

}  // namespace

// Steps 1 to 10; the numbers appear in the body.
void TddmContabilidadeBD::ExcluiLancamentoSelecionado(int32_t Lancamento, const std::string& AnoMes,
                                                      const std::string& Dia,
                                                      IProgressCallback* callback) {
  const std::string e = sql::Integer(aplicacao_->Empresa);
  const std::string r = sql::Integer(aplicacao_->Revenda);
  const std::string n = sql::Integer(Lancamento);
  bool falhou = false;  // 1
  (void)IniciaTransacao();
  try {
    sdsExcluiLanc.Close();  // 2
    sdsExcluiLanc.SetCommandText(kSelectDivisoes + e + kLf + kSelectDivisoesRevenda + r + kLf +
                                 kSelectDivisoesAnoMes + AnoMes + kLf + kSelectDivisoesLancamento +
                                 n + kLf + kSelectDivisoesOu + n + kSelectDivisoesFim);
    sdsExcluiLanc.Open();

    std::string encerramento;
    std::string conta_encerramento;
    for (sdsExcluiLanc.First(); !sdsExcluiLanc.Eof(); sdsExcluiLanc.Next()) {  // 3
      auto inteiro = [this](const char* campo) {                               // 3.1
        const db::Value& v = sdsExcluiLanc.FieldByName(campo);
        return v.IsNull() ? -1 : static_cast<int32_t>(v.AsInteger());
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
      sdsAux3.SetCommandText(kSelectLancamento + e + kLf + kSelectLancamentoRevenda + r + kLf +
                             kSelectLancamentoAnoMes + AnoMes + kLf + kSelectLancamentoNumero + n);
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
      const std::string c = sql::Quoted(conta_encerramento);
      sdsAux.Close();
      sdsAux.SetCommandText(kDeleteSaldoDivisao + e + kDeleteSaldoRevenda + r + kDeleteSaldoAno +
                            ano + kDeleteSaldoConta + c);
      sdsAux.ExecSQL();
      sdsAux.SetCommandText(kDeleteSaldo + e + kDeleteSaldoRevenda + r + kDeleteSaldoAno + ano +
                            kDeleteSaldoConta + c);
      sdsAux.ExecSQL();
    }

    sdsAux2.Close();  // 5
    sdsAux2.SetCommandText(kDeleteDivisoes + e + kLf + kDeleteDivisoesRevenda + r + kLf +
                           kDeleteDivisoesAnoMes + AnoMes + kLf + kDeleteDivisoesLancamento + n +
                           kLf + kDeleteDivisoesOu + n + kDeleteDivisoesFim);
    sdsAux2.ExecSQL();

    const std::string delete_lancamentos =
        kDeleteLancamentos + e + kDeleteLancamentosRevenda +  // 6
        r + kDeleteLancamentosAnoMes + AnoMes + kDeleteLancamentosDia + Dia;
    sdsAux2.SetCommandText(delete_lancamentos + kDeleteLancamentosGerados + n);
    sdsAux2.ExecSQL();
    sdsAux2.SetCommandText(delete_lancamentos + kDeleteLancamentosSelecionado + n);
    sdsAux2.ExecSQL();

    if (falhou)  // 7
      (void)RollbackTransacao();
    else
      (void)ComitaTransacao();
  } catch (const std::exception&) {
    // 8. A database failure is rolled back and swallowed; the flag stays as
    // it was, so the audit records below are still written. Intended: the
    // audit log also records an attempted deletion.
    (void)RollbackTransacao();
  }

  if (!falhou) {  // 9
    for (const char* tabela : {"'CTB_LANCAMENTO')", "'CTB_LANCAMENTO_DIVIDIDO')"}) {
      int32_t numero =  // 9.1
          BuscaProximoNumero(1, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", callback, 1);
      for (;;) {
        sdsExcluiLanc.Close();
        sdsExcluiLanc.SetCommandText(kSelectLog + sql::Integer(numero));
        sdsExcluiLanc.Open();
        const bool existe = !sdsExcluiLanc.IsEmpty();
        sdsExcluiLanc.Close();
        if (!existe) break;
        numero = BuscaProximoNumero(1, 1, "GER_LOG_CADASTROS", "LOG_CADASTROS", callback, 1);
      }
      const std::string agora =  // 9.2
          DataHoraPSql(DataHoraBD(false, true), aplicacao_->TipoBanco);
      sdsExcluiLanc.SetCommandText(
          kInsertLog + sql::Integer(numero) + "," + e + "," + r + "," +  // 9.3
          sql::Integer(aplicacao_->CodigoUsuario) + "," + agora + "," + "'E'," + tabela);
      sdsExcluiLanc.ExecSQL();
      // 9.4: the entry number is written as text in both value columns.
      sdsExcluiLanc.SetCommandText(kInsertLogItem + sql::Integer(numero) + ",'LANCAMENTO'," +
                                   sql::QuotedAsIs(n) + ",'EXCLUIDO'," + sql::QuotedAsIs(n) + ")");
      sdsExcluiLanc.ExecSQL();
    }
  }

  sdsAux.Close();  // 10
  sdsAux2.Close();
  sdsAux3.Close();
}

}  // namespace kvc
