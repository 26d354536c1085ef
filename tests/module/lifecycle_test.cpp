// The data module's life: creation, binding, the start of the service
// libraries with their version check, tear-down, and SetAlias.
#include <gtest/gtest.h>

#include <memory>

#include "accounting/db/connection.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "support/fake_libraries.h"

namespace kvc::testing {
namespace {

class LifecycleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    connection_ = db::Connect("sqlite::memory:");
    other_connection_ = db::Connect("sqlite::memory:");
    dm_ = std::make_unique<TddmContabilidadeBD>();
    dm_->SetServiceLibraries(std::make_unique<FakeGeral01>(log_),
                             std::make_unique<FakeIntegracao01>(log_));
  }

  LibraryCalls log_;
  std::unique_ptr<db::Connection> connection_;
  std::unique_ptr<db::Connection> other_connection_;
  TSimpleHostContext host_;
  std::unique_ptr<TddmContabilidadeBD> dm_;
};

TEST_F(LifecycleTest, CreationSetsInitialStateWithoutTouchingLibraries) {
  EXPECT_NE(dm_->Aplicacao(), nullptr);
  EXPECT_EQ(dm_->Conexao(), nullptr);
  EXPECT_EQ(dm_->ContadorDivisao(), 0);
  EXPECT_FALSE(dm_->DLLsInicializadas());
  for (int32_t key : dm_->ChavesCache()) EXPECT_EQ(key, -1);
  EXPECT_EQ(dm_->TextoCache(), "");
  EXPECT_EQ(dm_->LogErros(), nullptr);
  for (size_t i = 0; i < 3; ++i) EXPECT_FALSE(dm_->CacheExiste(i));
  EXPECT_TRUE(log_.calls.empty());
}

TEST_F(LifecycleTest, DesignTimeRewritingOnlyOnItsDatasets) {
  EXPECT_TRUE(dm_->sdsAux.HasBeforeOpen());
  EXPECT_TRUE(dm_->sdsExecutaSQL.HasBeforeOpen());
  EXPECT_TRUE(dm_->sdsSaldoContaAnalitica.HasBeforeOpen());
  EXPECT_FALSE(dm_->sdsAux2.HasBeforeOpen());
  EXPECT_FALSE(dm_->sdsSaldoTotal.HasBeforeOpen());
  EXPECT_FALSE(dm_->sdsEncerra.HasBeforeOpen());
  EXPECT_EQ(dm_->CommandDataSets().size(), 16u);
}

TEST_F(LifecycleTest, FixedStatementsCarryTheirParameters) {
  const auto& p = dm_->sdsSaldoTotal.GetParams();
  ASSERT_EQ(p.Count(), 4u);
  EXPECT_EQ(p[0].name, "EMPRESA");
  EXPECT_EQ(p[3].name, "PERFIN");
  EXPECT_EQ(dm_->sdsContaSuperiora.CommandText(),
            "select CONTA_SUPERIORA from CTB_CONTA where empresa = :EMPRESA and REVENDA = "
            ":REVENDA and CONTA = :CONTA");
  EXPECT_EQ(dm_->sdsContaSuperiora.ParamByName("EMPRESA").type, db::ParamType::kBcd);
  EXPECT_EQ(dm_->sdsContaSuperiora.ParamByName("CONTA").type, db::ParamType::kString);
  EXPECT_EQ(dm_->sdsBuscaSaldoDivisao.GetParams().Count(), 11u);
  EXPECT_EQ(dm_->sdsBuscaContaSaldo.GetParams().Count(), 4u);
}

TEST_F(LifecycleTest, BindingInstallsRewritingEverywhereAndStartsLibraries) {
  host_.tipo_banco = "SQLITE";
  host_.revenda_aplicacao = 7;
  host_.codigo_usuario = 33;
  dm_->AtualizaTAplicacao(host_, connection_.get(), 42);
  EXPECT_EQ(dm_->Conexao(), connection_.get());
  EXPECT_EQ(dm_->HandleAplicacao(), 42);
  EXPECT_EQ(dm_->Aplicacao()->RevendaAplicacao, 7);
  EXPECT_EQ(dm_->Aplicacao()->CodigoUsuario, 33);
  for (auto* ds : dm_->CommandDataSets()) {
    EXPECT_TRUE(ds->HasBeforeOpen()) << ds->Name();
    EXPECT_EQ(ds->BeforeOpenTag(), TddmContabilidadeBD::kRewritingHandlerTag) << ds->Name();
    EXPECT_TRUE(ds->NoMetadata()) << ds->Name();
    EXPECT_EQ(ds->GetConnection(), nullptr) << "binding does not connect datasets";
  }
  EXPECT_TRUE(dm_->DLLsInicializadas());
  ASSERT_EQ(log_.calls.size(), 2u);
  EXPECT_EQ(log_.calls[0], "InicializaGeral01(2.09)");
  EXPECT_EQ(log_.calls[1], "InicializaIntegracaoContabil01(2.09)");
  EXPECT_EQ(log_.last_connection, connection_.get());
  EXPECT_FALSE(host_.terminate_requested);
}

TEST_F(LifecycleTest, SecondBindingRebindsWithoutReinstallingOrRestarting) {
  dm_->AtualizaTAplicacao(host_, connection_.get(), 1);
  // A handler of the host's own on one dataset must survive the rebinding.
  int host_handler_calls = 0;
  dm_->sdsAux2.SetBeforeOpen([&](db::SQLDataSet&) { ++host_handler_calls; }, "host");
  log_.calls.clear();
  dm_->AtualizaTAplicacao(host_, other_connection_.get(), 2);
  EXPECT_EQ(dm_->Conexao(), other_connection_.get());
  EXPECT_EQ(dm_->HandleAplicacao(), 2);
  EXPECT_EQ(dm_->sdsAux2.BeforeOpenTag(), "host");
  EXPECT_EQ(dm_->sdsAux.BeforeOpenTag(), TddmContabilidadeBD::kRewritingHandlerTag);
  EXPECT_TRUE(log_.calls.empty()) << "libraries are not started again";
}

TEST_F(LifecycleTest, GeneralLibraryRefusalIsNotRememberedAndAsksToTerminate) {
  log_.geral_accepts = false;
  dm_->AtualizaTAplicacao(host_, connection_.get(), 1);
  EXPECT_TRUE(host_.terminate_requested);
  EXPECT_FALSE(dm_->DLLsInicializadas());
  EXPECT_EQ(host_.last_message,
            "Versão da DLL KVGeral01.dll 1.50 incompatível com banco versão 2.09");
  ASSERT_EQ(log_.calls.size(), 1u) << "integration library not asked";
  log_.calls.clear();
  EXPECT_FALSE(dm_->InicializaDLLs());
  EXPECT_EQ(log_.calls.size(), 1u) << "the next call asks again";
  log_.geral_accepts = true;
  log_.calls.clear();
  EXPECT_TRUE(dm_->InicializaDLLs());
  EXPECT_EQ(log_.calls.size(), 2u);
}

TEST_F(LifecycleTest, IntegrationLibraryRefusalIsRememberedAsStarted) {
  log_.integracao_accepts = false;
  dm_->AtualizaTAplicacao(host_, connection_.get(), 1);
  EXPECT_TRUE(host_.terminate_requested);
  EXPECT_EQ(host_.last_message,
            "Versão da DLL KVIntegracaoContabil01.dll 3.00 incompatível com banco versão 2.09");
  EXPECT_TRUE(dm_->DLLsInicializadas());
  log_.calls.clear();
  EXPECT_TRUE(dm_->InicializaDLLs());
  EXPECT_TRUE(log_.calls.empty()) << "nothing is called again";
}

TEST_F(LifecycleTest, FinalizaWithoutCachesFreesAplicacaoAndStopsBothLibraries) {
  dm_->AtualizaTAplicacao(host_, connection_.get(), 5);
  dm_->SetaSQLConnection();
  log_.calls.clear();
  dm_->FinalizaDM();
  EXPECT_EQ(dm_->Aplicacao(), nullptr);
  EXPECT_EQ(dm_->Conexao(), nullptr);
  ASSERT_EQ(log_.calls.size(), 2u);
  EXPECT_EQ(log_.calls[0], "FinalizaGeral01");
  EXPECT_EQ(log_.calls[1], "FinalizaIntegracaoContabil01");
  EXPECT_EQ(log_.last_handle, 5);
  EXPECT_TRUE(dm_->DLLsInicializadas()) << "not cleared";
  EXPECT_EQ(dm_->sdsAux.GetConnection(), connection_.get()) << "datasets stay bound";
}

TEST(SetAlias, ReplacesEveryMarker) {
  EXPECT_EQ(TUtilContabil::SetAlias("l", "{$ALIAS$}.CONTA = '1' and {$ALIAS$}.DIA > 2"),
            "l.CONTA = '1' and l.DIA > 2");
}

TEST(SetAlias, LowerCaseMarkerIsLeftAsItStands) {
  EXPECT_EQ(TUtilContabil::SetAlias("l", "{$alias$}.CONTA = {$ALIAS$}.X"), "{$alias$}.CONTA = l.X");
}

TEST(SetAlias, StatementWithoutMarkerIsUnchanged) {
  EXPECT_EQ(TUtilContabil::SetAlias("l", "CONTA = '1'"), "CONTA = '1'");
  EXPECT_EQ(TUtilContabil::SetAlias("l", ""), "");
}

}  // namespace
}  // namespace kvc::testing
