// Deleting a selected entry on each database: the statements sent, the
// journal, division, summarised-balance and carried-forward rows left behind,
// the audit records, and what happens when a step fails.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "accounting/db/dialect.h"
#include "accounting/db/error.h"
#include "accounting/services/service_libraries.h"
#include "accounting/services/zorutils.h"
#include "support/dados_teste.h"
#include "support/fake_libraries.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

using Kind = db::TracedStatement::Kind;

// ---- the statements of company 1, dealership 1, month 202405, entry 7, day 15

constexpr char kSelectDivisoes7[] =
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
    "  where cld.EMPRESA = 1\n"
    "    and cld.REVENDA = 1\n"
    "    and cld.ANO_MES = 202405\n"
    "    and cld.LANCAMENTO in \n"
    "        (select cla.LANCAMENTO from CTB_LANCAMENTO cla \n"
    "          where cla.EMPRESA = cld.EMPRESA \n"
    "            and cla.REVENDA = cld.REVENDA \n"
    "            and cla.ANO_MES = cld.ANO_MES \n"
    "            and cla.LANCAMENTO = cld.LANCAMENTO \n"
    "            and (cla.LCO_ORIGEM = 7\n"
    "                 or cla.LANCAMENTO = 7)) ";

constexpr char kSelectLancamento7[] =
    " select l.CONTA,                 l.NATUREZA,               l.ENCERRAMENTO_EXERCICIO    "
    "from CTB_LANCAMENTO l   where l.empresa    = 1\n"
    "    and l.revenda    = 1\n"
    "    and l.ano_mes    = 202405\n"
    "    and l.lancamento = 7";

constexpr char kDeleteSaldoDivisao3101[] =
    "DELETE FROM CTB_SALDO_ANTERIOR_DIVISAO  WHERE EMPRESA = 1   AND REVENDA = 1   AND ANO = 2024 "
    "  AND CONTA = '3101'";
constexpr char kDeleteSaldo3101[] =
    "DELETE FROM CTB_SALDO_ANTERIOR  WHERE EMPRESA = 1   AND REVENDA = 1   AND ANO = 2024   AND "
    "CONTA = '3101'";

constexpr char kDeleteDivisoes7[] =
    "delete from ctb_lancamento_dividido\n"
    " where empresa = 1\n"
    " and   revenda = 1\n"
    " and   ano_mes = 202405\n"
    " and lancamento in\n"
    " (select cla.lancamento from ctb_lancamento cla\n"
    "  where cla.empresa = ctb_lancamento_dividido.empresa\n"
    "  and   cla.revenda = ctb_lancamento_dividido.revenda\n"
    "  and   cla.ano_mes = ctb_lancamento_dividido.ano_mes\n"
    "  and   cla.lancamento = ctb_lancamento_dividido.lancamento\n"
    "  and   (cla.lco_origem = 7\n"
    "         or cla.lancamento = 7))";

constexpr char kDeleteGerados7[] =
    "delete from ctb_lancamento where empresa = 1 and   revenda = 1 and   ano_mes = 202405 and   "
    "dia = 15 and   lco_origem = 7";
constexpr char kDeleteSelecionado7[] =
    "delete from ctb_lancamento where empresa = 1 and   revenda = 1 and   ano_mes = 202405 and   "
    "dia = 15 and   lancamento = 7";

constexpr char kProbePrefix[] =
    "SELECT LOG_CADASTROS FROM GER_LOG_CADASTROS WHERE LOG_CADASTROS = ";
constexpr char kInsertLogPrefix[] =
    "INSERT INTO GER_LOG_CADASTROS (LOG_CADASTROS, EMPRESA, REVENDA, USUARIO, DTA_ALTERACAO,  "
    "TIPO_ALTERACAO, TABELA)  VALUES (";

std::string Probe(int log) { return kProbePrefix + std::to_string(log); }

std::string InsertLogItem(int log, int lancamento) {
  const std::string n = std::to_string(lancamento);
  return "INSERT INTO GER_LOG_CADASTROS_ITENS (LOG_CADASTROS, CAMPO, VALOR_ANTERIOR, VALOR_ATUAL, "
         "CONTEUDO_CHAVE)  VALUES (" +
         std::to_string(log) + ",'LANCAMENTO','" + n + "','EXCLUIDO','" + n + "')";
}

std::string Amount(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", v);
  return text;
}

// The rows of a query, each as its columns joined with "|" (null as "null");
// the columns listed in `amounts` are written with two decimals.
std::vector<std::string> Rows(db::Connection& c, const std::string& sql,
                              const std::set<size_t>& amounts = {}) {
  std::vector<std::string> out;
  for (const auto& row : c.Query(sql, {}).rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      if (i) line += "|";
      if (row[i].IsNull())
        line += "null";
      else
        line += amounts.count(i) ? Amount(row[i].AsFloat()) : row[i].AsString();
    }
    out.push_back(line);
  }
  return out;
}

// ---- service libraries that record what the deletion asks of them ------------

struct LibraryLog {
  // Every summarised-balance call: the texts, integers and amount joined
  // with ",".
  std::vector<std::string> saldo;
  // A first text ("L" or "D") whose updates the balance store refuses.
  std::string refuse_tipo;
  // Every BuscaProximoNumero call: company, dealership, table, key, step.
  std::vector<std::string> numbering;
  std::vector<IProgressCallback*> numbering_callbacks;
  // The two flags of every server-time call.
  std::vector<std::pair<bool, bool>> clock_flags;
  // A fixed server time; the database's own when empty.
  std::optional<DateTime> clock;
};

class RecordingGeral final : public ForwardingGeral01 {
 public:
  explicit RecordingGeral(LibraryLog& log) : log_(log) {}
  DateTime DLL_DataHoraBD(bool primeiro, bool segundo, int32_t handle) override {
    log_.clock_flags.emplace_back(primeiro, segundo);
    return log_.clock ? *log_.clock : real_->DLL_DataHoraBD(primeiro, segundo, handle);
  }
  int32_t DLL_BuscaProximoNumero(int32_t empresa, int32_t revenda, const std::string& tabela,
                                 const std::string& chave, IProgressCallback* callback,
                                 int32_t passo, const std::string& tipo_banco,
                                 const std::string& valor_numeracao, int32_t handle) override {
    log_.numbering.push_back(std::to_string(empresa) + "," + std::to_string(revenda) + "," +
                             tabela + "," + chave + "," + std::to_string(passo));
    log_.numbering_callbacks.push_back(callback);
    return real_->DLL_BuscaProximoNumero(empresa, revenda, tabela, chave, callback, passo,
                                         tipo_banco, valor_numeracao, handle);
  }

 private:
  LibraryLog& log_;
};

class RecordingIntegracao final : public ForwardingIntegracao01 {
 public:
  explicit RecordingIntegracao(LibraryLog& log) : log_(log) {}
  bool DLL_AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& t1,
                                   const std::string& t2, const std::string& t3,
                                   const std::string& t4, const std::string& t5,
                                   const std::string& t6, int32_t i1, int32_t i2, int32_t i3,
                                   int32_t i4, int32_t i5, int32_t i6, int32_t i7, int32_t i8,
                                   double valor, int32_t handle) override {
    std::string call = t1 + "," + t2 + "," + t3 + "," + t4 + "," + t5 + "," + t6;
    for (int32_t i : {i1, i2, i3, i4, i5, i6, i7, i8}) call += "," + std::to_string(i);
    log_.saldo.push_back(call + "," + Amount(valor));
    if (!log_.refuse_tipo.empty() && t1 == log_.refuse_tipo) return false;
    return real_->DLL_AtualizaSaldoSumarizado(conexao, t1, t2, t3, t4, t5, t6, i1, i2, i3, i4, i5,
                                              i6, i7, i8, valor, handle);
  }

 private:
  LibraryLog& log_;
};

class NullCallback final : public IProgressCallback {
 public:
  void Execute(const std::string&) override {}
};

// ---- rows written before a deletion -------------------------------------------

// A journal row; each setter names the column it fills.
struct Lancamento {
  int empresa = 1;
  int revenda = 1;
  int ano_mes = 202405;
  int lancamento = 7;
  std::optional<int> origem;
  std::string conta = "3101";
  int dia = 15;
  std::string natureza = "C";
  double valor = 100;
  std::string encerramento;  // ENCERRAMENTO_EXERCICIO; empty for NULL

  Lancamento& Empresa(int v) { return empresa = v, *this; }
  Lancamento& Revenda(int v) { return revenda = v, *this; }
  Lancamento& AnoMes(int v) { return ano_mes = v, *this; }
  Lancamento& Numero(int v) { return lancamento = v, *this; }
  Lancamento& Origem(int v) { return origem = v, *this; }
  Lancamento& Conta(std::string v) { return conta = std::move(v), *this; }
  Lancamento& Dia(int v) { return dia = v, *this; }
  Lancamento& Natureza(std::string v) { return natureza = std::move(v), *this; }
  Lancamento& Encerramento(std::string v) { return encerramento = std::move(v), *this; }
};

// A division row; unset division values are NULL.
struct Divisao {
  int empresa = 1;
  int revenda = 1;
  int ano_mes = 202405;
  int lancamento = 7;
  std::string tipo_item;   // empty for NULL
  std::string modalidade;  // empty for NULL
  std::optional<int> revenda_divisao;
  std::optional<int> centro_custo;
  std::optional<int> fonte;
  std::optional<int> categoria;
  std::optional<int> secao_oficina;
  double valor = 100;

  Divisao& Empresa(int v) { return empresa = v, *this; }
  Divisao& Revenda(int v) { return revenda = v, *this; }
  Divisao& AnoMes(int v) { return ano_mes = v, *this; }
  Divisao& Numero(int v) { return lancamento = v, *this; }
  Divisao& TipoItem(std::string v) { return tipo_item = std::move(v), *this; }
  Divisao& Modalidade(std::string v) { return modalidade = std::move(v), *this; }
  Divisao& RevendaDivisao(int v) { return revenda_divisao = v, *this; }
  Divisao& CentroCusto(int v) { return centro_custo = v, *this; }
  Divisao& Fonte(int v) { return fonte = v, *this; }
  Divisao& Categoria(int v) { return categoria = v, *this; }
  Divisao& SecaoOficina(int v) { return secao_oficina = v, *this; }
  Divisao& Valor(double v) { return valor = v, *this; }
};

class ExcluiLancamentoTest : public ModuleTest {
 protected:
  // Binds a module whose libraries record their calls (and delegate to the
  // stand-alone ones).
  void BindRecording() {
    dm_ = std::make_unique<TddmContabilidadeBD>();
    dm_->SetServiceLibraries(std::make_unique<RecordingGeral>(log_),
                             std::make_unique<RecordingIntegracao>(log_));
    dm_->AtualizaTAplicacao(host_, trace_.get(), 1);
    dm_->SetaSQLConnection();
    ASSERT_TRUE(dm_->DLLsInicializadas());
    ASSERT_FALSE(host_.terminate_requested);
  }

  // The rows' writer for a company and dealership, amounts with two decimals.
  DadosDeTeste Dados(int empresa = 1, int revenda = 1) const {
    return DadosDeTeste(*raw_, empresa, revenda).ComValores(EscritaDeValor::kDuasCasas);
  }

  void Insert(const Lancamento& l) {
    Dados(l.empresa, l.revenda)
        .Lancamento(l.ano_mes, l.lancamento, l.conta, l.natureza, l.valor,
                    {.dia = l.dia,
                     .lco_origem = l.origem,
                     .usuario = 1,
                     .origem = "O",
                     .lco_ok = "N",
                     .encerramento_exercicio = NuloSeVazio(l.encerramento),
                     .revenda_operacao = l.revenda});
  }

  void Insert(const Divisao& d) {
    Dados(d.empresa, d.revenda)
        .LancamentoDividido(++sequencia_, d.ano_mes, d.lancamento, d.valor,
                            {.revenda_divisao = d.revenda_divisao,
                             .centro_custo = d.centro_custo,
                             .fonte = d.fonte,
                             .categoria = d.categoria,
                             .secao_oficina = d.secao_oficina,
                             .tipo_item = NuloSeVazio(d.tipo_item),
                             .modalidade_operacao = NuloSeVazio(d.modalidade),
                             .revenda_origem = 1});
  }

  // Entry 7 (account 3101, credit, day 15) with its generated entry 8
  // (account 1101, debit, same day), one division row each.
  void InsertPair() {
    Insert(Lancamento());
    Insert(Lancamento().Numero(8).Origem(7).Conta("1101").Natureza("D"));
    Insert(Divisao().RevendaDivisao(1));
    Insert(Divisao().Numero(8).RevendaDivisao(1));
  }

  void Exclui(int32_t lancamento = 7, const std::string& ano_mes = "202405",
              const std::string& dia = "15", IProgressCallback* callback = nullptr) {
    dm_->ExcluiLancamentoSelecionado(lancamento, ano_mes, dia, callback);
  }

  // The statements the module itself sent: those of the service libraries
  // (numbering, summarised balances, server time) left out.
  std::vector<SqlEnviado> ModuleStatements() const {
    std::vector<SqlEnviado> out;
    const std::string clock = raw_->dialect().ServerTimeQuery();
    for (const SqlEnviado& s : trace_->Statements())
      if (s.find("GER_NUMERADOR") == std::string::npos &&
          s.find("INT_SALDO_SUMARIZADO") == std::string::npos && s != clock)
        out.push_back(s);
    return out;
  }

  // Position of the first traced operation with this text (or of this kind
  // when the text is empty) at or after `from`; the trace size when none.
  size_t FindInTrace(const std::string& sql, Kind kind = Kind::kExecute, size_t from = 0) const {
    const auto& t = trace_->Trace();
    for (size_t i = from; i < t.size(); ++i)
      if (t[i].kind == kind && t[i].sql == sql) return i;
    return t.size();
  }
  bool TraceHas(Kind kind) const {
    for (const auto& t : trace_->Trace())
      if (t.kind == kind) return true;
    return false;
  }

  std::vector<std::string> Journal() {
    return Column(*raw_,
                  "select LANCAMENTO from CTB_LANCAMENTO order by EMPRESA, REVENDA, ANO_MES, "
                  "LANCAMENTO");
  }
  std::vector<std::string> DivisionEntries() {
    return Column(*raw_,
                  "select LANCAMENTO from CTB_LANCAMENTO_DIVIDIDO order by EMPRESA, REVENDA, "
                  "ANO_MES, LANCAMENTO, SEQUENCIA");
  }
  std::vector<std::string> AuditHeaders() {
    return Rows(*raw_,
                "select LOG_CADASTROS, EMPRESA, REVENDA, USUARIO, TIPO_ALTERACAO, TABELA from "
                "GER_LOG_CADASTROS order by LOG_CADASTROS");
  }
  std::vector<std::string> AuditItems() {
    return Rows(*raw_,
                "select LOG_CADASTROS, CAMPO, VALOR_ANTERIOR, VALOR_ATUAL, CONTEUDO_CHAVE from "
                "GER_LOG_CADASTROS_ITENS order by LOG_CADASTROS");
  }
  long long AuditHeadersWithTime() {
    return Scalar(*raw_, "select count(*) N from GER_LOG_CADASTROS where DTA_ALTERACAO is not null")
        .AsInteger();
  }
  // Every summarised balance: kind, texts, account, nature, company,
  // dealership, month, the five divisions and the balance.
  std::vector<std::string> SaldosSumarizados() {
    return Rows(*raw_,
                "select TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, REVENDA, ANO_MES, "
                "DIVISAO1, DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO from "
                "INT_SALDO_SUMARIZADO order by TIPO_SALDO, CONTA, NATUREZA, TEXTO3, DIVISAO1, "
                "DIVISAO5",
                {13});
  }

  // The two audit headers and their lines of one deletion of entry `n`,
  // numbered from `first_log`, for the application's company, dealership
  // and user.
  static std::vector<std::string> ExpectedHeaders(int first_log, int empresa, int revenda,
                                                  int usuario) {
    const std::string who =
        std::to_string(empresa) + "|" + std::to_string(revenda) + "|" + std::to_string(usuario);
    return {std::to_string(first_log) + "|" + who + "|E|CTB_LANCAMENTO",
            std::to_string(first_log + 1) + "|" + who + "|E|CTB_LANCAMENTO_DIVIDIDO"};
  }
  static std::vector<std::string> ExpectedItems(int first_log, int n) {
    const std::string line = "|LANCAMENTO|" + std::to_string(n) + "|EXCLUIDO|" + std::to_string(n);
    return {std::to_string(first_log) + line, std::to_string(first_log + 1) + line};
  }

  LibraryLog log_;
  int sequencia_ = 0;
};

// ---- the statements -----------------------------------------------------------

TEST_P(ExcluiLancamentoTest, DeletionSendsItsStatementsExactlyAndCommitsBeforeTheAudit) {
  InsertPair();
  host_.codigo_usuario = 42;
  log_.clock = DateTime{2024, 5, 15, 10, 20, 30, 0};
  BindRecording();
  trace_->Clear();

  Exclui();

  const std::string agora = DataHoraPSql(*log_.clock, host_.tipo_banco);
  EXPECT_EQ(
      ModuleStatements(),
      (std::vector<std::string>{
          kSelectDivisoes7,
          kSelectLancamento7,
          kSelectLancamento7,
          kDeleteDivisoes7,
          kDeleteGerados7,
          kDeleteSelecionado7,
          Probe(1),
          kInsertLogPrefix + std::string("1,1,1,42,") + agora + ",'E','CTB_LANCAMENTO')",
          InsertLogItem(1, 7),
          Probe(2),
          kInsertLogPrefix + std::string("2,1,1,42,") + agora + ",'E','CTB_LANCAMENTO_DIVIDIDO')",
          InsertLogItem(2, 7),
      }));

  // One transaction from the first read to the last delete, committed
  // before the audit records are numbered.
  const auto& t = trace_->Trace();
  ASSERT_FALSE(t.empty());
  EXPECT_EQ(t.front().kind, Kind::kBegin);
  const size_t last_delete = FindInTrace(kDeleteSelecionado7);
  ASSERT_LT(last_delete + 1, t.size());
  EXPECT_EQ(t[last_delete + 1].kind, Kind::kCommit);
  EXPECT_GT(FindInTrace(Probe(1), Kind::kQuery), last_delete + 1);
  EXPECT_FALSE(TraceHas(Kind::kRollback));
  EXPECT_FALSE(dm_->TransacaoAtiva());

  // The time stamps are the server's, asked for with (false, true).
  EXPECT_EQ(log_.clock_flags, (std::vector<std::pair<bool, bool>>{{false, true}, {false, true}}));
  EXPECT_EQ(Column(*raw_, "select DTA_ALTERACAO from GER_LOG_CADASTROS order by LOG_CADASTROS"),
            (std::vector<std::string>{"2024-05-15 10:20:30", "2024-05-15 10:20:30"}));
}

TEST_P(ExcluiLancamentoTest, DeletionLeavesItsCommandDatasetsClosed) {
  InsertPair();
  BindRecording();
  // Open before the call, so that only the deletion's closing step can
  // leave them closed: two of them are only executed inside it.
  for (db::SQLDataSet* ds : {&dm_->sdsAux, &dm_->sdsAux2, &dm_->sdsAux3}) {
    ds->SetCommandText("select VERSAO from GER_VERSAO_ESTRUTURA");
    ds->Open();
    ASSERT_TRUE(ds->Active());
  }
  Exclui();
  EXPECT_FALSE(dm_->sdsAux.Active());
  EXPECT_FALSE(dm_->sdsAux2.Active());
  EXPECT_FALSE(dm_->sdsAux3.Active());
}

// ---- what is deleted ------------------------------------------------------------

TEST_P(ExcluiLancamentoTest, EntryWithoutDivisionRowsIsDeletedAndAudited) {
  Insert(Lancamento());
  Insert(Lancamento().Numero(8).Origem(7).Conta("1101").Natureza("D"));
  Insert(Lancamento().Numero(9).Conta("3102"));
  Insert(Divisao().Numero(9).RevendaDivisao(1));
  host_.codigo_usuario = 42;
  BindRecording();
  trace_->Clear();

  Exclui();

  EXPECT_TRUE(log_.saldo.empty()) << "no summarised-balance call without division rows";
  EXPECT_EQ(CountRows(*raw_, "INT_SALDO_SUMARIZADO"), 0);
  const auto statements = ModuleStatements();
  EXPECT_EQ(std::count(statements.begin(), statements.end(), kSelectLancamento7), 0)
      << "the selected entry is only read per division row";
  EXPECT_EQ(Journal(), (std::vector<std::string>{"9"}));
  EXPECT_EQ(DivisionEntries(), (std::vector<std::string>{"9"}));
  EXPECT_EQ(AuditHeaders(), ExpectedHeaders(1, 1, 1, 42));
  EXPECT_EQ(AuditItems(), ExpectedItems(1, 7));
  EXPECT_EQ(AuditHeadersWithTime(), 2);
}

TEST_P(ExcluiLancamentoTest, GeneratedEntriesOnAnotherDayKeepTheirJournalRows) {
  Insert(Lancamento());
  Insert(Lancamento().Numero(8).Origem(7).Conta("1101").Dia(16).Natureza("D"));
  Insert(Lancamento().Numero(10).Origem(7).Conta("1102").Natureza("D"));
  Insert(Lancamento().Numero(9).Conta("3102"));
  for (int n : {7, 8, 10, 9}) Insert(Divisao().Numero(n).RevendaDivisao(1));
  BindRecording();
  trace_->Clear();

  Exclui();

  // The division rows go whatever their entry's day; the journal rows only
  // on the selected entry's day.
  EXPECT_EQ(Journal(), (std::vector<std::string>{"8", "9"}));
  EXPECT_EQ(DivisionEntries(), (std::vector<std::string>{"9"}));
  const auto statements = ModuleStatements();
  EXPECT_NE(std::find(statements.begin(), statements.end(), kDeleteGerados7), statements.end());
  EXPECT_NE(std::find(statements.begin(), statements.end(), kDeleteSelecionado7), statements.end());
  EXPECT_EQ(AuditHeaders().size(), 2u);
}

TEST_P(ExcluiLancamentoTest, DeletionIsLimitedToTheApplicationsCompanyDealershipAndMonth) {
  InsertPair();
  for (auto [empresa, revenda, ano_mes] :
       {std::tuple{2, 1, 202405}, std::tuple{1, 2, 202405}, std::tuple{1, 1, 202406}}) {
    Insert(Lancamento().Empresa(empresa).Revenda(revenda).AnoMes(ano_mes));
    Insert(Lancamento()
               .Empresa(empresa)
               .Revenda(revenda)
               .AnoMes(ano_mes)
               .Numero(8)
               .Origem(7)
               .Conta("1101")
               .Natureza("D"));
    Insert(Divisao().Empresa(empresa).Revenda(revenda).AnoMes(ano_mes));
    Insert(Divisao().Empresa(empresa).Revenda(revenda).AnoMes(ano_mes).Numero(8));
  }
  BindRecording();

  Exclui();

  const std::vector<std::string> others{"1|1|202406|7", "1|1|202406|8", "1|2|202405|7",
                                        "1|2|202405|8", "2|1|202405|7", "2|1|202405|8"};
  EXPECT_EQ(Rows(*raw_,
                 "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO from CTB_LANCAMENTO order by "
                 "EMPRESA, REVENDA, ANO_MES, LANCAMENTO"),
            others);
  EXPECT_EQ(Rows(*raw_,
                 "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO from CTB_LANCAMENTO_DIVIDIDO order "
                 "by EMPRESA, REVENDA, ANO_MES, LANCAMENTO"),
            others);
}

TEST_P(ExcluiLancamentoTest, ClosingEntryDeletionRemovesCarriedForwardRowsOfItsYear) {
  Insert(Lancamento().Encerramento("S"));
  Insert(Divisao().RevendaDivisao(1));
  const std::vector<std::tuple<int, int, std::string, int>> saldos{
      {1, 1, "3101", 2024}, {1, 1, "3101", 2023}, {1, 1, "3102", 2024},
      {2, 1, "3101", 2024}, {1, 2, "3101", 2024}, {1, 1, "3101", 2025}};
  int sequencia = 0;
  for (const auto& [empresa, revenda, conta, ano] : saldos)
    Dados(empresa, revenda)
        .SaldoAnterior(conta, ano, 10)
        .SaldoAnteriorDivisao(++sequencia, conta, ano, 10, {.revenda_divisao = 1});
  BindRecording();
  trace_->Clear();

  Exclui();

  const auto statements = ModuleStatements();
  ASSERT_GE(statements.size(), 6u);
  EXPECT_EQ(std::vector<SqlEnviado>(statements.begin(), statements.begin() + 6),
            (std::vector<std::string>{kSelectDivisoes7, kSelectLancamento7, kDeleteSaldoDivisao3101,
                                      kDeleteSaldo3101, kDeleteDivisoes7, kDeleteGerados7}));
  const std::vector<std::string> left{"1|1|3101|2023", "1|1|3101|2025", "1|1|3102|2024",
                                      "1|2|3101|2024", "2|1|3101|2024"};
  EXPECT_EQ(Rows(*raw_,
                 "select EMPRESA, REVENDA, CONTA, ANO from CTB_SALDO_ANTERIOR order by EMPRESA, "
                 "REVENDA, CONTA, ANO"),
            left);
  EXPECT_EQ(Rows(*raw_,
                 "select EMPRESA, REVENDA, CONTA, ANO from CTB_SALDO_ANTERIOR_DIVISAO order by "
                 "EMPRESA, REVENDA, CONTA, ANO"),
            left);
  EXPECT_TRUE(Journal().empty());
  EXPECT_EQ(AuditHeaders().size(), 2u);
}

TEST_P(ExcluiLancamentoTest, OrdinaryEntryDeletionKeepsCarriedForwardRows) {
  Insert(Lancamento().Encerramento("N"));
  Insert(Divisao().RevendaDivisao(1));
  Dados().SaldoAnterior("3101", 2024, 10).SaldoAnteriorDivisao(1, "3101", 2024, 10);
  BindRecording();
  trace_->Clear();

  Exclui();

  for (const std::string& s : ModuleStatements())
    EXPECT_EQ(s.find("CTB_SALDO_ANTERIOR"), std::string::npos) << s;
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 1);
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR_DIVISAO"), 1);
  EXPECT_TRUE(Journal().empty());
}

TEST_P(ExcluiLancamentoTest, ClosingEntryWithoutDivisionRowsKeepsCarriedForwardRows) {
  // The closing mark is read with the division rows, so an entry without
  // any never reaches the carried-forward deletes.
  Insert(Lancamento().Encerramento("S"));
  Dados().SaldoAnterior("3101", 2024, 10);
  BindRecording();
  trace_->Clear();

  Exclui();

  for (const std::string& s : ModuleStatements())
    EXPECT_EQ(s.find("CTB_SALDO_ANTERIOR"), std::string::npos) << s;
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 1);
  EXPECT_TRUE(Journal().empty());
}

// ---- summarised balances ------------------------------------------------------------

TEST_P(ExcluiLancamentoTest, EveryDivisionRowIsReversedWithTheSelectedEntrysAccountAndNature) {
  Insert(Lancamento());
  Insert(Lancamento().Numero(8).Origem(7).Conta("1101").Natureza("D"));
  Insert(Divisao()
             .TipoItem("V")
             .Modalidade("A")
             .RevendaDivisao(2)
             .CentroCusto(10)
             .Fonte(3)
             .Categoria(4)
             .SecaoOficina(5)
             .Valor(100));
  Insert(Divisao().Numero(8).Valor(40.25));
  BindRecording();

  Exclui();

  // Two calls per division row, account-level then division-level; the
  // generated entry's row is reversed with entry 7's account and nature too.
  ASSERT_EQ(log_.saldo.size(), 4u);
  for (size_t i = 0; i < log_.saldo.size(); ++i)
    EXPECT_EQ(log_.saldo[i].substr(0, 2), i % 2 == 0 ? "L," : "D,") << log_.saldo[i];
  std::vector<std::string> calls = log_.saldo;
  std::sort(calls.begin(), calls.end());
  EXPECT_EQ(calls, (std::vector<std::string>{
                       "D,E,,,3101,C,1,1,202405,-1,-1,-1,-1,-1,40.25",
                       "D,E,V,A,3101,C,1,1,202405,2,10,3,4,5,100.00",
                       "L,E,,,3101,C,1,1,202405,-1,-1,-1,-1,-1,100.00",
                       "L,E,,,3101,C,1,1,202405,-1,-1,-1,-1,-1,40.25",
                   }));
  EXPECT_EQ(SaldosSumarizados(), (std::vector<std::string>{
                                     "D|||3101|C|1|1|202405|-1|-1|-1|-1|-1|-40.25",
                                     "D|V|A|3101|C|1|1|202405|2|10|3|4|5|-100.00",
                                     "L|||3101|C|1|1|202405|-1|-1|-1|-1|-1|-140.25",
                                 }));
  EXPECT_TRUE(Journal().empty());
  EXPECT_TRUE(DivisionEntries().empty());
}

// ---- failures -------------------------------------------------------------------------

TEST_P(ExcluiLancamentoTest, RefusedSummarisedBalanceUpdateRollsEverythingBackWithoutAudit) {
  InsertPair();
  raw_->Execute(
      "insert into INT_SALDO_SUMARIZADO (TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, "
      "REVENDA, ANO_MES, DIVISAO1, DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO) values ('L', '', "
      "'', '3101', 'C', 1, 1, 202405, -1, -1, -1, -1, -1, 500.00)",
      {});
  log_.refuse_tipo = "D";
  BindRecording();
  trace_->Clear();

  EXPECT_NO_THROW(Exclui());

  // The loop goes on after a refusal and the deletes still run, inside the
  // transaction that is then rolled back.
  EXPECT_EQ(log_.saldo.size(), 4u);
  const size_t last_delete = FindInTrace(kDeleteSelecionado7);
  ASSERT_LT(last_delete + 1, trace_->Trace().size());
  EXPECT_EQ(trace_->Trace()[last_delete + 1].kind, Kind::kRollback);
  EXPECT_FALSE(TraceHas(Kind::kCommit));
  EXPECT_FALSE(dm_->TransacaoAtiva());

  EXPECT_EQ(Journal(), (std::vector<std::string>{"7", "8"}));
  EXPECT_EQ(DivisionEntries(), (std::vector<std::string>{"7", "8"}));
  EXPECT_EQ(SaldosSumarizados(), (std::vector<std::string>{
                                     "L|||3101|C|1|1|202405|-1|-1|-1|-1|-1|500.00",
                                 }))
      << "the accepted account-level updates are rolled back too";
  EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS"), 0);
  EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS_ITENS"), 0);
  EXPECT_TRUE(log_.numbering.empty());
  for (const std::string& s : ModuleStatements())
    EXPECT_EQ(s.find("GER_LOG_CADASTROS"), std::string::npos) << s;
}

TEST_P(ExcluiLancamentoTest, DatabaseFailureInDeletionIsRolledBackSwallowedAndStillAudited) {
  InsertPair();
  raw_->Execute(
      "insert into INT_SALDO_SUMARIZADO (TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, "
      "REVENDA, ANO_MES, DIVISAO1, DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO) values ('L', '', "
      "'', '3101', 'C', 1, 1, 202405, -1, -1, -1, -1, -1, 500.00)",
      {});
  host_.codigo_usuario = 42;
  BindRecording();
  trace_->Clear();
  trace_->FailMatching("delete from ctb_lancamento where");

  EXPECT_NO_THROW(Exclui());

  // The first journal delete fails; the transaction is rolled back at once
  // and the second delete is never sent.
  const auto& t = trace_->Trace();
  const size_t failed = FindInTrace(kDeleteGerados7);
  ASSERT_LT(failed + 1, t.size());
  EXPECT_TRUE(t[failed].failed);
  EXPECT_EQ(t[failed + 1].kind, Kind::kRollback);
  EXPECT_EQ(FindInTrace(kDeleteSelecionado7), t.size());
  EXPECT_FALSE(dm_->TransacaoAtiva());

  EXPECT_EQ(Journal(), (std::vector<std::string>{"7", "8"}));
  EXPECT_EQ(DivisionEntries(), (std::vector<std::string>{"7", "8"}));
  EXPECT_EQ(SaldosSumarizados(), (std::vector<std::string>{
                                     "L|||3101|C|1|1|202405|-1|-1|-1|-1|-1|500.00",
                                 }));
  // Only a refused balance update suppresses the audit: the attempt is
  // recorded as a deletion.
  EXPECT_EQ(AuditHeaders(), ExpectedHeaders(1, 1, 1, 42));
  EXPECT_EQ(AuditItems(), ExpectedItems(1, 7));
  EXPECT_EQ(AuditHeadersWithTime(), 2);
  EXPECT_FALSE(dm_->sdsAux.Active());
  EXPECT_FALSE(dm_->sdsAux2.Active());
  EXPECT_FALSE(dm_->sdsAux3.Active());
}

TEST_P(ExcluiLancamentoTest, AuditProbeSkipsANumberAlreadyUsed) {
  Insert(Lancamento());
  raw_->Execute(
      "insert into GER_LOG_CADASTROS (LOG_CADASTROS, EMPRESA, REVENDA, USUARIO, TIPO_ALTERACAO, "
      "TABELA) values (1, 8, 8, 8, 'A', 'OUTRA')",
      {});
  host_.codigo_usuario = 42;
  BindRecording();
  trace_->Clear();

  Exclui();

  std::vector<std::string> probes;
  for (const std::string& s : ModuleStatements())
    if (s.rfind(kProbePrefix, 0) == 0) probes.push_back(s);
  EXPECT_EQ(probes, (std::vector<std::string>{Probe(1), Probe(2), Probe(3)}));
  EXPECT_EQ(log_.numbering.size(), 3u);
  EXPECT_EQ(AuditHeaders(),
            (std::vector<std::string>{"1|8|8|8|A|OUTRA", "2|1|1|42|E|CTB_LANCAMENTO",
                                      "3|1|1|42|E|CTB_LANCAMENTO_DIVIDIDO"}));
  EXPECT_EQ(AuditItems(), ExpectedItems(2, 7));
}

TEST_P(ExcluiLancamentoTest, AuditWriteFailureReachesTheCallerAfterTheDeletionIsCommitted) {
  InsertPair();
  BindRecording();
  trace_->FailMatching("INSERT INTO GER_LOG_CADASTROS (");

  EXPECT_THROW(Exclui(), db::DatabaseError);

  EXPECT_TRUE(Journal().empty());
  EXPECT_TRUE(DivisionEntries().empty());
  EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS"), 0);
  EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS_ITENS"), 0);
  EXPECT_FALSE(dm_->TransacaoAtiva());
}

TEST_P(ExcluiLancamentoTest, AuditItemFailureReachesTheCallerAfterItsHeader) {
  InsertPair();
  BindRecording();
  trace_->FailMatching("INSERT INTO GER_LOG_CADASTROS_ITENS");

  EXPECT_THROW(Exclui(), db::DatabaseError);

  EXPECT_TRUE(Journal().empty());
  EXPECT_EQ(AuditHeaders(), (std::vector<std::string>{"1|1|1|1|E|CTB_LANCAMENTO"}));
  EXPECT_EQ(CountRows(*raw_, "GER_LOG_CADASTROS_ITENS"), 0);
}

// ---- audit numbering ----------------------------------------------------------------------

TEST_P(ExcluiLancamentoTest, AuditNumberingUsesCompanyOneDealershipOne) {
  host_.empresa = 5;
  host_.revenda = 3;
  host_.codigo_usuario = 9;
  Insert(Lancamento().Empresa(5).Revenda(3));
  Insert(Divisao().Empresa(5).Revenda(3).RevendaDivisao(3));
  Insert(Lancamento());
  Insert(Divisao().RevendaDivisao(1));
  BindRecording();
  trace_->Clear();
  NullCallback callback;

  Exclui(7, "202405", "15", &callback);

  EXPECT_EQ(log_.numbering, (std::vector<std::string>{"1,1,GER_LOG_CADASTROS,LOG_CADASTROS,1",
                                                      "1,1,GER_LOG_CADASTROS,LOG_CADASTROS,1"}));
  EXPECT_EQ(log_.numbering_callbacks, (std::vector<IProgressCallback*>{&callback, &callback}))
      << "the caller's callback goes to the numbering";
  EXPECT_EQ(Rows(*raw_,
                 "select EMPRESA, REVENDA, TABELA, CHAVE, ULTIMO_NUMERO from GER_NUMERADOR where "
                 "TABELA = 'GER_LOG_CADASTROS'"),
            (std::vector<std::string>{"1|1|GER_LOG_CADASTROS|LOG_CADASTROS|2"}));
  // The records themselves carry the application's company and dealership,
  // as do the deletion's statements.
  EXPECT_EQ(AuditHeaders(), ExpectedHeaders(1, 5, 3, 9));
  EXPECT_EQ(AuditItems(), ExpectedItems(1, 7));
  const auto statements = ModuleStatements();
  ASSERT_FALSE(statements.empty());
  EXPECT_NE(statements[0].find(Fragmento("  where cld.EMPRESA = 5\n    and cld.REVENDA = 3\n")),
            std::string::npos);
  EXPECT_NE(std::find(statements.begin(), statements.end(),
                      "delete from ctb_lancamento where empresa = 5 and   revenda = 3 and   "
                      "ano_mes = 202405 and   dia = 15 and   lancamento = 7"),
            statements.end());
  EXPECT_EQ(Rows(*raw_, "select EMPRESA, REVENDA, LANCAMENTO from CTB_LANCAMENTO"),
            (std::vector<std::string>{"1|1|7"}));
}

// ---- a posted batch deleted entry by entry ---------------------------------------------------

// A 133-character interface record: no division code (positions 13-16), the
// month YYMM, the day, the history, two account fields, standard history 12,
// the side mark and the amount in hundredths.
std::string Registro(const std::string& yymm, const std::string& dia, const std::string& historico,
                     const std::string& primeira_conta, const std::string& segunda_conta,
                     char marca, long long centavos) {
  auto pad = [](std::string s, size_t n) {
    s.resize(n, ' ');
    return s;
  };
  char valor[16];
  std::snprintf(valor, sizeof valor, "%015lld", centavos);
  std::string r = pad("", 32) + yymm + dia + pad("", 3) + pad(historico, 32) +
                  pad(primeira_conta, 20) + pad(segunda_conta, 20) + pad("12", 4) + marca + valor;
  EXPECT_EQ(r.size(), 133u);
  return r;
}

TEST_P(ExcluiLancamentoTest, PostedPairsDeletedOneByOneLeaveJournalAsBefore) {
  // Rows already there before the batch.
  Insert(Lancamento().Numero(100).Dia(10));
  Insert(Lancamento().Numero(101).Origem(100).Conta("1101").Dia(10).Natureza("D"));
  Insert(Divisao().Numero(100).RevendaDivisao(1));
  Insert(Divisao().Numero(101).RevendaDivisao(1));
  const std::string journal_sql =
      "select EMPRESA, REVENDA, ANO_MES, LANCAMENTO, LCO_ORIGEM, CONTA, DIA, NATUREZA, "
      "VAL_LANCAMENTO from CTB_LANCAMENTO order by EMPRESA, REVENDA, ANO_MES, LANCAMENTO";
  const std::string divisions_sql =
      "select SEQUENCIA, EMPRESA, REVENDA, ANO_MES, LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, "
      "FONTE, CATEGORIA, SECAO_OFICINA, TIPO_ITEM, MODALIDADE_OPERACAO, REVENDA_ORIGEM, "
      "VAL_DIVISAO from CTB_LANCAMENTO_DIVIDIDO order by LANCAMENTO, SEQUENCIA";
  const auto journal_before = Rows(*raw_, journal_sql, {8});
  const auto divisions_before = Rows(*raw_, divisions_sql, {13});
  BindRecording();

  // Credit 3101 / debit 1101 100.00 on the 10th, credit 3101 / debit 1102
  // 25.50 on the 11th, and with the side mark "-" credit 3201 / debit 1101
  // 10.00 on the 12th: entries 1 to 6, the odd ones the credits.
  ASSERT_TRUE(dm_->IniciaTransacao());
  dm_->GravaLancamento(Registro("2405", "10", "Venda", "1101", "3101", ' ', 10000), "1", "1", "123",
                       "4", false);
  dm_->GravaLancamento(Registro("2405", "11", "Venda", "1102", "3101", ' ', 2550), "1", "1", "124",
                       "4", false);
  dm_->GravaLancamento(Registro("2405", "12", "Estorno", "3201", "1101", '-', 1000), "1", "1",
                       "125", "4", false);
  ASSERT_TRUE(dm_->ComitaTransacao());
  ASSERT_EQ(Rows(*raw_,
                 "select LANCAMENTO, LCO_ORIGEM, CONTA, NATUREZA, DIA from CTB_LANCAMENTO where "
                 "LANCAMENTO < 100 order by LANCAMENTO"),
            (std::vector<std::string>{"1|null|3101|C|10", "2|1|1101|D|10", "3|null|3101|C|11",
                                      "4|3|1102|D|11", "5|null|3201|C|12", "6|5|1101|D|12"}));
  ASSERT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 8);

  const std::vector<int> credits = {1, 3, 5};
  for (size_t i = 0; i < credits.size(); ++i)
    dm_->ExcluiLancamentoSelecionado(credits[i], "202405", std::to_string(10 + i), nullptr);

  EXPECT_EQ(Rows(*raw_, journal_sql, {8}), journal_before);
  EXPECT_EQ(Rows(*raw_, divisions_sql, {13}), divisions_before);

  std::vector<std::string> headers, items;
  int log = 0;
  for (int n : credits) {
    for (const auto& h : ExpectedHeaders(log + 1, 1, 1, 1)) headers.push_back(h);
    for (const auto& l : ExpectedItems(log + 1, n)) items.push_back(l);
    log += 2;
  }
  EXPECT_EQ(AuditHeaders(), headers);
  EXPECT_EQ(AuditItems(), items);
  EXPECT_EQ(AuditHeadersWithTime(), 6);

  // Posting adds each amount under its own account and nature, the
  // division-level key carrying division dealership 4 in its fifth place.
  // The deletion reverses both division rows of a pair with the selected
  // (credit) entry's account and nature, and its division-level key carries
  // the division dealership in its first place. So the summarised balances
  // do not return to their prior (empty) state:
  //   L 3101 C: +100 +25.50 (posting) -2*100 -2*25.50 (deletions) = -125.50
  //   L 3201 C: +10 - 2*10 = -10.00; L 1101 D: 100 + 10; L 1102 D: 25.50
  //   D 3101 C, first place 4: -200 - 51 = -251.00; D 3201 C: -20.00
  //   the posting's division-level keys keep their amounts.
  EXPECT_EQ(SaldosSumarizados(), (std::vector<std::string>{
                                     "D|||1101|D|1|1|202405|-1|-1|-1|-1|4|110.00",
                                     "D|||1102|D|1|1|202405|-1|-1|-1|-1|4|25.50",
                                     "D|||3101|C|1|1|202405|-1|-1|-1|-1|4|125.50",
                                     "D|||3101|C|1|1|202405|4|-1|-1|-1|-1|-251.00",
                                     "D|||3201|C|1|1|202405|-1|-1|-1|-1|4|10.00",
                                     "D|||3201|C|1|1|202405|4|-1|-1|-1|-1|-20.00",
                                     "L|||1101|D|1|1|202405|-1|-1|-1|-1|-1|110.00",
                                     "L|||1102|D|1|1|202405|-1|-1|-1|-1|-1|25.50",
                                     "L|||3101|C|1|1|202405|-1|-1|-1|-1|-1|-125.50",
                                     "L|||3201|C|1|1|202405|-1|-1|-1|-1|-1|-10.00",
                                 }));
}

KVC_INSTANTIATE_BACKENDS(ExcluiLancamentoTest);

}  // namespace
}  // namespace kvc::testing
