// The annual closing on each database: the refusal of self-referencing
// accounts, the rewritten rows of both carried-forward tables, the progress
// commands, and the error table exchanged with the caller.
#include <gtest/gtest.h>

#include <clocale>
#include <set>

#include "accounting/db/client_dataset.h"
#include "closing/closing_fixture.h"

namespace kvc::testing {
namespace {

class EncerramentoAnualTest : public ClosingTest {
 protected:
  // A small chart: 1 > 1.1 > {1.1.1, 1.1.2}, 3 > 3.1.
  void Plano() {
    Conta("1", "", "S");
    Conta("1.1", "1", "S");
    Conta("1.1.1", "1.1", "A");
    Conta("1.1.2", "1.1", "A");
    Conta("3", "", "S");
    Conta("3.1", "3", "A");
  }
  std::vector<Linha> Saldos(int ano = 2023) {
    return Linhas(*raw_, "select CONTA, SALDO from CTB_SALDO_ANTERIOR where ANO = " +
                             std::to_string(ano) + " order by CONTA");
  }
  std::vector<Linha> SaldosDivisao(int ano = 2023) {
    return Linhas(*raw_,
                  "select CONTA, CENTRO_CUSTO, REVENDA_DIVISAO, TIPO_ITEM, SALDO from "
                  "CTB_SALDO_ANTERIOR_DIVISAO where ANO = " +
                      std::to_string(ano) +
                      " order by CONTA, CENTRO_CUSTO, REVENDA_DIVISAO, TIPO_ITEM");
  }
  // The error table handed back, as rows of MENSAGEM, SQL and EMESSAGE.
  static std::vector<Linha> Erros(const std::string& dados) {
    db::ClientDataSet t("t");
    t.LoadFromString(dados);
    std::vector<Linha> linhas;
    for (t.First(); !t.Eof(); t.Next())
      linhas.push_back({t.FieldByName("MENSAGEM").AsString(), t.FieldByName("SQL").AsString(),
                        t.FieldByName("EMESSAGE").AsString()});
    return linhas;
  }
};

TEST_P(EncerramentoAnualTest, SelfReferencingAccountStopsTheRunWithTheErrorCommand) {
  Plano();
  Conta("9", "9", "S");
  SaldoAnterior("1.1.1", 2023, 50);
  Bind();
  const auto antes = Banco();
  Comandos comandos;
  std::string erros = "";
  trace_->Clear();
  dm_->EncerramentoAnual("2023", erros, &comandos);
  EXPECT_EQ(comandos.lista,
            (std::vector<std::string>{
                "mtError#$#As seguintes contas estão com a conta superiora igual a conta\n[9]#$#"
                "Encerramento Anual Cancelado ..."}));
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select EMPRESA, REVENDA, CONTA FROM CTB_CONTA where EMPRESA = 1 and REVENDA = 1 "
                "and CONTA = CONTA_SUPERIORA"}));
  EXPECT_EQ(Banco(), antes);
  EXPECT_EQ(erros, "");
}

TEST_P(EncerramentoAnualTest, EverySelfReferencingAccountStandsOnALineOfItsOwn) {
  Conta("8", "8", "S");
  Conta("9", "9", "S");
  Bind();
  Comandos comandos;
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, &comandos);
  ASSERT_EQ(comandos.lista.size(), 1u);
  const std::string& c = comandos.lista[0];
  EXPECT_TRUE(c.find("conta\n[8]\n[9]#$#") != std::string::npos ||
              c.find("conta\n[9]\n[8]#$#") != std::string::npos)
      << c;
}

TEST_P(EncerramentoAnualTest, CompanyWithNoAnalyticAccountsDeletesTheYearAndWritesNothing) {
  Conta("1", "", "S");
  SaldoAnterior("1", 2023, 70);
  SaldoAnterior("1", 2022, 30);
  SaldoAnteriorDivisao("1", 2023, 70, 4);
  Bind();
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);
  EXPECT_TRUE(Saldos().empty());
  EXPECT_TRUE(SaldosDivisao().empty());
  EXPECT_EQ(Saldos(2022), (std::vector<Linha>{{"1", "30.00"}}));
  EXPECT_TRUE(Erros(erros).empty());
}

TEST_P(EncerramentoAnualTest, AccountWithoutMovementGetsAZeroRowButNoDivisionRows) {
  Plano();
  Lancamento(202303, 5, "1.1.1", "D", 100, {{60, 1}, {40, 2, 7, "P"}});
  Lancamento(202304, 5, "1.1.1", "C", 25, {{25, 1}});
  Bind();
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);
  EXPECT_EQ(Saldos(), (std::vector<Linha>{{"1", "75.00"},
                                          {"1.1", "75.00"},
                                          {"1.1.1", "75.00"},
                                          {"1.1.2", "0.00"},
                                          {"3", "0.00"},
                                          {"3.1", "0.00"}}));
  const auto divisoes = SaldosDivisao();
  std::vector<Linha> analiticas;
  for (const auto& l : divisoes)
    if (l[0] == "1.1.1") analiticas.push_back(l);
  EXPECT_EQ(analiticas, (std::vector<Linha>{{"1.1.1", "1", "NULL", "NULL", "35.00"},
                                            {"1.1.1", "2", "7", "P", "40.00"}}));
  for (const auto& l : divisoes) EXPECT_NE(l[0], "1.1.2");
  for (const auto& l : divisoes) EXPECT_NE(l[0], "3.1");
  EXPECT_TRUE(Erros(erros).empty());
}

TEST_P(EncerramentoAnualTest, CombinationUsedOnlyInTheYearBeforeStillGetsARow) {
  Plano();
  Lancamento(202205, 5, "1.1.2", "D", 40, {{40, 9}});
  Lancamento(202303, 5, "1.1.2", "D", 10, {{10, 1}});
  Bind();
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);
  // Without a closed 2022 the 2022 movement is not carried, but the
  // combination of 2022 is there.
  std::set<std::string> centros;
  for (const auto& l : SaldosDivisao())
    if (l[0] == "1.1.2") centros.insert(l[1]);
  EXPECT_EQ(centros, (std::set<std::string>{"1", "9"}));

  // Closing 2022 first carries it into 2023.
  dm_->EncerramentoAnual("2022", erros, nullptr);
  dm_->EncerramentoAnual("2023", erros, nullptr);
  std::vector<Linha> conta;
  for (const auto& l : SaldosDivisao())
    if (l[0] == "1.1.2") conta.push_back(l);
  EXPECT_EQ(conta, (std::vector<Linha>{{"1.1.2", "1", "NULL", "NULL", "10.00"},
                                       {"1.1.2", "9", "NULL", "NULL", "40.00"}}));
  EXPECT_EQ(Saldos(2022)[3], (Linha{"1.1.2", "40.00"}));
  EXPECT_EQ(Saldos(2023)[3], (Linha{"1.1.2", "50.00"}));
  EXPECT_TRUE(Erros(erros).empty());
}

TEST_P(EncerramentoAnualTest, StatementsAndProgressCommandsOfASmallRun) {
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Conta("1.2", "1", "A");
  Lancamento(202302, 5, "1.1", "D", 1234.5, {{1234.5, 3}});
  Bind();
  Comandos comandos;
  std::string erros;
  trace_->Clear();
  if (!std::setlocale(LC_ALL, "pt_BR.UTF-8")) GTEST_SKIP() << "pt_BR.UTF-8 not installed";
  dm_->EncerramentoAnual("2023", erros, &comandos);
  std::setlocale(LC_ALL, "C");
  const auto s = trace_->Statements();
  auto posicao = [&s](const std::string& sql) {
    return std::find(s.begin(), s.end(), sql) - s.begin();
  };
  const auto exclui = posicao(
      " delete from ctb_saldo_anterior  where empresa = 1 and   revenda = 1 and   ano = 2023");
  const auto analiticas = posicao(
      "   select EMPRESA,            REVENDA,            CONTA          from CTB_CONTA  "
      "   where EMPRESA = 1      and REVENDA = 1      and NIVEL = 'A' order by CONTA ");
  const auto inclui1 = posicao(
      " insert into ctb_saldo_anterior(empresa, revenda, conta, ano, saldo) values(1 ,1 ,'1.1' "
      ",2023 ,1234.50 )");
  const auto inclui2 = posicao(
      " insert into ctb_saldo_anterior(empresa, revenda, conta, ano, saldo) values(1 ,1 ,'1.2' "
      ",2023 ,0.00 )");
  const auto exclui_divisao = posicao(
      " delete from ctb_saldo_anterior_divisao  where empresa = 1 and   revenda = 1 and   ano = "
      "2023");
  ptrdiff_t inclui_divisao = -1;
  for (size_t i = 0; i < s.size(); ++i)
    if (s[i].rfind(" insert into ctb_saldo_anterior_divisao (sequencia, empresa, revenda, ano, "
                   "conta, revenda_divisao, tipo_item, categoria,  centro_custo, "
                   "modalidade_operacao, secao_oficina, fonte, saldo) values(",
                   0) == 0) {
      EXPECT_NE(s[i].find(" ,1 ,1 ,2023 ,'1.1' ,NULL ,NULL ,NULL ,3 ,NULL ,NULL ,NULL ,1234.50 )"),
                std::string::npos)
          << s[i];
      inclui_divisao = static_cast<ptrdiff_t>(i);
    }
  const auto n = static_cast<ptrdiff_t>(s.size());
  EXPECT_LT(exclui, analiticas);
  EXPECT_LT(analiticas, inclui1);
  EXPECT_LT(inclui1, inclui2);
  EXPECT_LT(inclui2, exclui_divisao);
  EXPECT_LT(exclui_divisao, inclui_divisao);
  EXPECT_LT(inclui_divisao, n);
  EXPECT_EQ(comandos.lista,
            (std::vector<std::string>{
                "pnlMensagem.Caption#$#Buscando o movimento e saldo do período ...",
                "pBar#$#0",
                "pBar#$#50",
                "pBar#$#100",
                "pnlMensagem.Caption#$#Atualizando o saldo Anterior na base ...",
                "pBar#$#0",
                "pBar#$#50",
                "pBar#$#100",
                "pnlMensagem.Caption#$#Atualizando o saldo Anterior dividido na base ..",
                "pBar#$#0",
                "pBar#$#100",
                "pnlMensagem.Caption#$#Atualizando saldo das contas superioras ...",
                "pBar#$#0",
                "pBar#$#0",
                "pBar#$#50",
                "pBar#$#100",
                "pnlMensagem.Caption#$#Atualizando saldo dividido das contas superioras ...",
                "pBar#$#0",
                "pBar#$#100",
            }));
}

TEST_P(EncerramentoAnualTest, CallersRowsComeBackWithTheNewRowsAppended) {
  Plano();
  Bind();
  // The caller's table holds one row from before.
  db::ClientDataSet caller("caller");
  caller.DefineFields({{"DTA_ERRO", db::FieldType::kDateTime},
                       {"MENSAGEM", db::FieldType::kString},
                       {"SQL", db::FieldType::kString},
                       {"EMESSAGE", db::FieldType::kString}});
  caller.Append();
  caller.SetFieldValue("MENSAGEM", "anterior");
  caller.SetFieldValue("SQL", "select 1");
  caller.SetFieldValue("EMESSAGE", "antes");
  caller.Post();
  std::string erros = caller.SaveToString();
  const std::string falha =
      " insert into ctb_saldo_anterior(empresa, revenda, conta, ano, saldo) values(1 ,1 ,'1.1.2' "
      ",2023 ,0.00 )";
  trace_->FailMatching(falha, "constraint violated");
  dm_->EncerramentoAnual("2023", erros, nullptr);
  trace_->ClearFaults();
  EXPECT_EQ(Erros(erros), (std::vector<Linha>{
                              {"anterior", "select 1", "antes"},
                              {"Erro ao incluir saldo anterior.", falha, "constraint violated"}}));
  // The run went on: the other accounts and the roll-up are there.
  EXPECT_EQ(
      Saldos(),
      (std::vector<Linha>{
          {"1", "0.00"}, {"1.1", "0.00"}, {"1.1.1", "0.00"}, {"3", "0.00"}, {"3.1", "0.00"}}));
  EXPECT_EQ(dm_->LogErros(), nullptr);
}

TEST_P(EncerramentoAnualTest, EachDeleteFailureIsOneRowWithItsMessage) {
  Plano();
  Bind();
  std::string erros;
  trace_->FailMatching(" delete from ctb_saldo_anterior", "locked");
  dm_->EncerramentoAnual("2023", erros, nullptr);
  trace_->ClearFaults();
  const auto linhas = Erros(erros);
  // The two deletes of the closing, then the roll-up's own.
  ASSERT_GE(linhas.size(), 2u);
  EXPECT_EQ(linhas[0][0], "Erro ao excluir saldo anterior.");
  EXPECT_EQ(linhas[1][0], "Erro ao excluir saldo anterior dividido.");
  EXPECT_EQ(linhas[1][2], "locked");
}

TEST_P(EncerramentoAnualTest, ErrorTableThatIsNotOneIsRefusedBeforeAnythingRuns) {
  Plano();
  Bind();
  std::string erros = "not table data";
  trace_->Clear();
  EXPECT_THROW(dm_->EncerramentoAnual("2023", erros, nullptr), std::invalid_argument);
  db::ClientDataSet outra("outra");
  outra.DefineFields({{"X", db::FieldType::kString}});
  erros = outra.SaveToString();
  EXPECT_THROW(dm_->EncerramentoAnual("2023", erros, nullptr), std::invalid_argument);
  EXPECT_THROW(dm_->EncerramentoAnual("20x3", erros, nullptr), std::invalid_argument);
  EXPECT_TRUE(trace_->Statements().empty());
}

TEST_P(EncerramentoAnualTest, RunningTwiceRewritesTheSameRows) {
  Plano();
  Lancamento(202303, 5, "1.1.1", "D", 100, {{60, 1}, {40, 2}});
  Lancamento(202303, 5, "3.1", "C", 100, {{100, 1}});
  Bind();
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);
  const auto saldos = Saldos();
  const auto divisoes = SaldosDivisao();
  dm_->EncerramentoAnual("2023", erros, nullptr);
  EXPECT_EQ(Saldos(), saldos);
  EXPECT_EQ(SaldosDivisao(), divisoes);
  EXPECT_TRUE(Erros(erros).empty());
}

TEST_P(EncerramentoAnualTest, PostingsAfterAnEarlierRunAreSeenByTheNextOne) {
  Plano();
  Lancamento(202303, 5, "1.1.1", "D", 100, {{100, 1}});
  Bind();
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);
  Lancamento(202304, 5, "1.1.1", "D", 5, {{5, 1}});
  dm_->EncerramentoAnual("2023", erros, nullptr);
  EXPECT_EQ(Saldos()[2], (Linha{"1.1.1", "105.00"}));
}

// Any one insert of the run failing (the closing's own and the roll-up's)
// yields exactly one error row carrying that statement, and the run
// completes.
TEST_P(EncerramentoAnualTest, EachInsertFailingInTurnYieldsExactlyOneErrorRow) {
  Plano();
  Lancamento(202303, 5, "1.1.1", "D", 100, {{60, 1}, {40, 2}});
  Lancamento(202303, 5, "3.1", "C", 70, {{70, 1}});
  Bind();
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);  // numbering rows exist from here on
  const auto referencia = Banco();
  trace_->Clear();
  Comandos comandos;
  dm_->EncerramentoAnual("2023", erros, &comandos);
  const auto ultimo_comando = comandos.lista.back();
  // Each insert is picked by its text after the first value: the sequence
  // numbers of the division rows move on from run to run, and a server may
  // return the roll-up's rows in another order each time.
  std::vector<std::pair<std::string, std::string>> inserts;  // prefix, rest
  for (const auto& sql : trace_->Statements()) {
    if (sql.find("insert into ctb_saldo_anterior") == std::string::npos) continue;
    const size_t valores = sql.find("values(");
    const size_t virgula = sql.find(',', valores);
    ASSERT_NE(virgula, std::string::npos) << sql;
    inserts.emplace_back(sql.substr(0, valores), sql.substr(virgula));
  }
  ASSERT_GE(inserts.size(), 10u);
  for (const auto& [prefixo, resto] : inserts) {
    erros.clear();
    comandos.lista.clear();
    trace_->Clear();
    trace_->FailMatching(resto, "injected");
    EXPECT_NO_THROW(dm_->EncerramentoAnual("2023", erros, &comandos));
    trace_->ClearFaults();
    std::string falhou;
    size_t injetadas = 0;
    for (const auto& t : trace_->Trace())
      if (t.injected) {
        falhou = t.sql;
        ++injetadas;
      }
    ASSERT_EQ(injetadas, 1u) << resto;
    ASSERT_EQ(falhou.rfind(prefixo, 0), 0u) << falhou;
    const auto linhas = Erros(erros);
    ASSERT_EQ(linhas.size(), 1u) << falhou;
    EXPECT_EQ(linhas[0][1], falhou);
    EXPECT_EQ(linhas[0][2], "injected");
    EXPECT_EQ(comandos.lista.back(), ultimo_comando);
    // The next clean run puts everything back.
    erros.clear();
    dm_->EncerramentoAnual("2023", erros, nullptr);
    EXPECT_TRUE(Erros(erros).empty());
  }
  // Sequences move on; every other row is as in the reference run.
  auto sem_sequencia = [](std::map<std::string, std::vector<Linha>> banco) {
    banco.erase("GER_NUMERADOR");
    for (auto& l : banco["CTB_SALDO_ANTERIOR_DIVISAO"]) l[0] = "";
    std::sort(banco["CTB_SALDO_ANTERIOR_DIVISAO"].begin(),
              banco["CTB_SALDO_ANTERIOR_DIVISAO"].end());
    return banco;
  };
  EXPECT_EQ(sem_sequencia(Banco()), sem_sequencia(referencia));
}

KVC_INSTANTIATE_BACKENDS(EncerramentoAnualTest);

}  // namespace
}  // namespace kvc::testing
