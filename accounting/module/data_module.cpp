// The data module's life: creation, binding to the host with the start of the
// service libraries and their version check, and the final tear-down. Also
// TUtilContabil and the C entry points of the loadable module.
#include <string_view>

#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

// Statement S1 of sdsSaldoTotal: the division movement of every account of a
// company and dealership over a range of months.
constexpr char kSqlSaldoTotal[] =
    "select l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria, d.secao_oficina, d.tipo_item, d.modalidade_operacao, sum(d.val_divisao) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = :EMPRESA"
    " and l.revenda = :REVENDA"
    " and l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria, d.secao_oficina, d.tipo_item, d.modalidade_operacao";

constexpr char kSqlContaSuperiora[] =
    "select CONTA_SUPERIORA"
    " from CTB_CONTA"
    " where empresa = :EMPRESA"
    " and REVENDA = :REVENDA"
    " and CONTA = :CONTA";

constexpr char kSqlBuscaContaSaldo[] =
    "select CONTA, SALDO"
    " from CTB_SALDO_ANTERIOR"
    " where EMPRESA = :EMPRESA"
    " and REVENDA = :REVENDA"
    " and CONTA = :CONTA"
    " and ANO = :ANO";

// Statement S2 of sdsBuscaSaldoDivisao.
constexpr char kSqlBuscaSaldoDivisao[] =
    "select CONTA, REVENDA_DIVISAO, TIPO_ITEM, CATEGORIA, CENTRO_CUSTO, MODALIDADE_OPERACAO, SECAO_OFICINA, FONTE, SALDO"
    " from CTB_SALDO_ANTERIOR_DIVISAO"
    " where EMPRESA = :EMPRESA"
    " and REVENDA = :REVENDA"
    " and CONTA = :CONTA"
    " and REVENDA_DIVISAO = :REVENDA_DIVISAO"
    " and TIPO_ITEM = :TIPO_ITEM"
    " and CATEGORIA = :CATEGORIA"
    " and CENTRO_CUSTO = :CENTRO_CUSTO"
    " and MODALIDADE_OPERACAO = :MODALIDADE_OPERACAO"
    " and SECAO_OFICINA = :SECAO_OFICINA"
    " and FONTE = :FONTE"
    " and ANO = :ANO";

constexpr char kMsgVersaoGeral[] = "Versão da DLL KVGeral01.dll ";
constexpr char kMsgVersaoIntegracao[] = "Versão da DLL KVIntegracaoContabil01.dll ";
constexpr char kMsgIncompativel[] = " incompatível com banco versão ";

}  // namespace

std::string TUtilContabil::SetAlias(const std::string& alias, const std::string& statement) {
  constexpr std::string_view marker = kAliasMarker;
  std::string out;
  size_t last = 0;
  for (size_t pos = statement.find(marker); pos != std::string::npos;
       pos = statement.find(marker, last)) {
    out.append(statement, last, pos - last);
    out += alias;
    last = pos + marker.size();
  }
  out.append(statement, last, std::string::npos);
  return out;
}

TddmContabilidadeBD::TddmContabilidadeBD()
    : geral_(NewGeral01()), integracao_(NewIntegracaoContabil01()) {
  command_datasets_ = {&sdsDataHora,
                       &sdsNumerador,
                       &sdsAAux,
                       &sdsExecutaSQL,
                       &sdsConsultaLoc1,
                       &sdsAux,
                       &sdsSaldoTotal,
                       &sdsBuscaFilho,
                       &sdsContaSuperiora,
                       &sdsBuscaContaSaldo,
                       &sdsBuscaSaldoDivisao,
                       &sdsEncerra,
                       &sdsAux2,
                       &sdsAux3,
                       &sdsExcluiLanc,
                       &sdsSaldoContaAnalitica};
  SetFixedContent();
  DataModuleCreate();
}

TddmContabilidadeBD::~TddmContabilidadeBD() = default;

// The design-time content of the components: fixed statements and their
// parameters, the rewriting handler on the datasets that have it from the
// start, and the index of cdsSaldoTotal.
void TddmContabilidadeBD::SetFixedContent() {
  for (db::SQLDataSet* dataset : {&sdsDataHora, &sdsNumerador, &sdsAAux, &sdsExecutaSQL,
                                  &sdsConsultaLoc1, &sdsAux, &sdsSaldoContaAnalitica}) {
    InstallRewriting(*dataset);
    dataset->SetNoMetadata(true);
  }
  // No limit on large-object size on these.
  for (db::SQLDataSet* dataset : {&sdsDataHora, &sdsExecutaSQL, &sdsConsultaLoc1, &sdsAux})
    dataset->SetMaxBlobSize(-1);

  sdsSaldoTotal.SetCommandText(kSqlSaldoTotal);
  for (const char* name : {"EMPRESA", "REVENDA", "PERINI", "PERFIN"})
    cdsSaldoTotalParams.Add(name, db::ParamType::kUnknown);

  sdsContaSuperiora.SetCommandText(kSqlContaSuperiora);
  sdsContaSuperiora.ParamByName("EMPRESA").type = db::ParamType::kBcd;
  sdsContaSuperiora.ParamByName("REVENDA").type = db::ParamType::kBcd;
  sdsContaSuperiora.ParamByName("CONTA").type = db::ParamType::kString;

  sdsBuscaContaSaldo.SetCommandText(kSqlBuscaContaSaldo);
  sdsBuscaSaldoDivisao.SetCommandText(kSqlBuscaSaldoDivisao);
}

void TddmContabilidadeBD::InstallRewriting(db::SQLDataSet& dataset) {
  dataset.SetBeforeOpen([this](db::SQLDataSet& ds) { sdsPadraoBeforeOpen(ds); },
                        kRewritingHandlerTag);
}

void TddmContabilidadeBD::DataModuleCreate() {
  aplicacao_ = std::make_unique<TAplicacaoLibrary>();
  contador_divisao_ = 0;
  dlls_inicializadas_ = false;
  chaves_cache_ = {-1, -1, -1, -1, -1};
  texto_cache_.clear();
}

void TddmContabilidadeBD::SetServiceLibraries(std::unique_ptr<IGeral01> geral,
                                              std::unique_ptr<IIntegracaoContabil01> integracao) {
  geral_ = std::move(geral);
  integracao_ = std::move(integracao);
}

// 1. Refresh Aplicacao from the owner. 2. Keep connection and handle (the
// datasets are bound later by SetaSQLConnection). 3. Install the rewriting
// step where no handler is set and switch metadata off everywhere. 4. Start
// the libraries; on refusal ask the host to terminate.
void TddmContabilidadeBD::AtualizaTAplicacao(THostContext& owner, db::Connection* connection,
                                             int32_t handle) {
  aplicacao_->AtualizaPropriedades(owner);  // 1
  conexao_ = connection;                    // 2
  handle_aplicacao_ = handle;
  for (db::SQLDataSet* dataset : command_datasets_)  // 3
    if (!dataset->HasBeforeOpen()) InstallRewriting(*dataset);
  for (db::SQLDataSet* dataset : command_datasets_) dataset->SetNoMetadata(true);
  if (!InicializaDLLs()) owner.RequestTerminate();  // 4
}

// 1. Already started: true. 2. The general library refuses: message, false,
// and nothing remembered, so the next call asks again. 3. The integration
// library refuses: message, false, but the module counts as started, so the
// next call returns true at once; this asymmetry is intended and hosts rely on
// it. 4. Both accept: started, true.
bool TddmContabilidadeBD::InicializaDLLs() {
  if (dlls_inicializadas_) return true;  // 1
  THostContext* host = aplicacao_ ? aplicacao_->Host : nullptr;
  if (!geral_->DLL_InicializaGeral01(kVersaoEstrutura, handle_aplicacao_)) {  // 2
    if (host)
      host->MessageDlgZOR(
          kMsgVersaoGeral + geral_->DLL_VersaoGeral01() + kMsgIncompativel + kVersaoEstrutura,
          TMsgDlgType::mtError, TMsgDlgButton::mbOK, 0);
    return false;
  }
  if (!integracao_->DLL_InicializaIntegracaoContabil01(conexao_, kVersaoEstrutura,  // 3
                                                       handle_aplicacao_)) {
    if (host)
      host->MessageDlgZOR(kMsgVersaoIntegracao + integracao_->DLL_VersaoIntegracaoContabil01() +
                              kMsgIncompativel + kVersaoEstrutura,
                          TMsgDlgType::mtError, TMsgDlgButton::mbOK, 0);
    dlls_inicializadas_ = true;
    return false;
  }
  dlls_inicializadas_ = true;  // 4
  return true;
}

// 1. Free the caches that exist. 2. Shut both libraries down. 3. Free
// Aplicacao. 4. Forget the connection; the datasets stay bound and
// DLLsInicializadas stays as it is.
void TddmContabilidadeBD::FinalizaDM() {
  for (auto& cache : caches_) cache.reset();       // 1
  geral_->DLL_FinalizaGeral01(handle_aplicacao_);  // 2
  integracao_->DLL_FinalizaIntegracaoContabil01(handle_aplicacao_);
  aplicacao_.reset();  // 3
  conexao_ = nullptr;  // 4
}

}  // namespace kvc

extern "C" {
kvc::TddmContabilidadeBD* KVContabilidade01_Create() { return new kvc::TddmContabilidadeBD(); }
void KVContabilidade01_Destroy(kvc::TddmContabilidadeBD* module) { delete module; }
}
