// Regressions of the result calculation:
// - it answered a failed begin or commit with English messages of its own,
//   where every message the module shows its users is Portuguese;
// - the day after the last calculation came from mktime, so it depended on
//   the machine's time zone (in a zone that skipped a day it jumped two);
// - a result account whose code begins with a byte above 127 was compared as
//   a signed char, taken for a balance-sheet account and never closed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

#include "closing/closing_fixture.h"

namespace kvc::testing {
namespace {

class ApuracaoResultadoRegressoesTest : public ClosingTest {
 protected:
  void Plano() {
    Conta("2", "", "S");
    Conta("2.9", "2", "A");
    Conta("3", "", "S");
    Conta("3.1", "3", "A");
  }
  bool Apura(bool confirmar = true) {
    return dm_->ApuraResultado(202312, "2023", "31", "77", "2.9", false, credito_, debito_,
                               diferenca_, mensagem_, confirmar, false, true, "");
  }
  std::string credito_, debito_, diferenca_, mensagem_;
};

// Sets the process's time zone for the life of the object.
class FusoHorario {
 public:
  explicit FusoHorario(const char* zona) {
    if (const char* tz = std::getenv("TZ")) anterior_ = tz;
    setenv("TZ", zona, 1);
    tzset();
  }
  ~FusoHorario() {
    if (anterior_)
      setenv("TZ", anterior_->c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }

 private:
  std::optional<std::string> anterior_;
};

TEST_P(ApuracaoResultadoRegressoesTest, RefusedCommitIsAnsweredInPortugueseAndLeavesNothing) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 100, {{100, 1}});
  Bind();
  const auto antes = Banco();
  trace_->FailCommit(true);
  EXPECT_FALSE(Apura());
  trace_->FailCommit(false);
  EXPECT_EQ(mensagem_,
            "Não foi possível confirmar a transação da apuração do resultado. Nada foi gravado.");
  EXPECT_FALSE(dm_->TransacaoAtiva());
  EXPECT_FALSE(raw_->InTransaction());
  EXPECT_EQ(Banco(), antes);
}

TEST_P(ApuracaoResultadoRegressoesTest, RefusedBeginIsAnsweredInPortugueseAndWritesNothing) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 100, {{100, 1}});
  Bind();
  const auto antes = Banco();
  // A transaction already open on the connection makes the begin fail.
  raw_->Begin(db::Isolation::kReadCommitted);
  EXPECT_FALSE(Apura());
  raw_->Rollback();
  EXPECT_EQ(mensagem_,
            "Não foi possível iniciar a transação da apuração do resultado. Nada foi gravado.");
  EXPECT_EQ(Banco(), antes);
}

TEST_P(ApuracaoResultadoRegressoesTest, ClosingDateThatIsNoCalendarDayIsNamedInPortuguese) {
  Plano();
  Numeracao("2022-12-31");
  Bind();
  EXPECT_FALSE(dm_->ApuraResultado(202302, "2023", "30", "77", "2.9", false, credito_, debito_,
                                   diferenca_, mensagem_, true, false, true, ""));
  EXPECT_EQ(mensagem_, "A data de apuração 30/02/2023 não é uma data válida.");
}

// Pacific/Apia went from 29 to 31 December 2011: 30 December never happened
// there, on the wall clock. The calendar knows nothing of it.
TEST_P(ApuracaoResultadoRegressoesTest, DayAfterTheLastCalculationIgnoresTheTimeZone) {
  Numeracao("2011-12-29");
  Bind();
  FusoHorario apia("Pacific/Apia");
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "20111230");
  raw_->Execute("update FAT_NUMERACAO_LIVROS set ANOMES_APURACAO_RESULTADO = '2024-02-28'", {});
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "20240229");
  raw_->Execute("update FAT_NUMERACAO_LIVROS set ANOMES_APURACAO_RESULTADO = '2023-12-31'", {});
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "20240101");
}

TEST_P(ApuracaoResultadoRegressoesTest, ResultAccountBeginningWithAByteAbove127IsClosed) {
  Plano();
  Conta(
      "\xC3\x89"
      "1",
      "", "A");  // "É1"
  Numeracao("2022-12-31");
  Lancamento(202303, 3,
             "\xC3\x89"
             "1",
             "D", 100, {{100, 1}});
  Bind();
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_EQ(debito_, "100.00 D");
  EXPECT_EQ(Linhas(*raw_,
                   "select CONTA, NATUREZA, VAL_LANCAMENTO from CTB_LANCAMENTO where ORIGEM = "
                   "'O' and CONTA <> '2.9'"),
            (std::vector<Linha>{{"\xC3\x89"
                                 "1",
                                 "C", "100.00"}}));
}

KVC_INSTANTIATE_BACKENDS(ApuracaoResultadoRegressoesTest);

}  // namespace
}  // namespace kvc::testing
