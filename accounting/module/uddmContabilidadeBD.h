// The accounting data module: TddmContabilidadeBD, the one service object of
// the KVContabilidade01 module, with its state, its datasets and every public
// operation. Methods are defined across the subsystem folders (module,
// services, entries, balances, carryforward, closing), one file per family.
//
// Threading: one instance serves one thread at a time; nothing is locked.
#ifndef KVC_MODULE_UDDMCONTABILIDADEBD_H_
#define KVC_MODULE_UDDMCONTABILIDADEBD_H_

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/client_dataset.h"
#include "accounting/db/connection.h"
#include "accounting/db/provider.h"
#include "accounting/db/sql_dataset.h"
#include "accounting/db/transaction_guard.h"
#include "accounting/db/value.h"
#include "accounting/module/formato_numerico.h"
#include "accounting/services/aplicacao.h"
#include "accounting/services/progress.h"
#include "accounting/services/service_libraries.h"

namespace kvc {

struct FiltroSaldo;

// The stateless utility class of the module.
class KVC_API TUtilContabil {
 public:
  // The marker that stands for the journal table's correlation name in a
  // caller's extra condition.
  static constexpr char kAliasMarker[] = "{$ALIAS$}";

  // `statement` with every "{$ALIAS$}" (case-sensitive) replaced by `alias`;
  // a statement without the marker comes back unchanged.
  static std::string SetAlias(const std::string& alias, const std::string& statement);
};

class KVC_API TddmContabilidadeBD {
 public:
  // DataModuleCreate runs here: Aplicacao is created, the division-row
  // counter is zero, the libraries are not started, the five cache keys are
  // -1 and the cached text is empty. Neither the connection nor the service
  // libraries are touched.
  TddmContabilidadeBD();
  ~TddmContabilidadeBD();
  TddmContabilidadeBD(const TddmContabilidadeBD&) = delete;
  TddmContabilidadeBD& operator=(const TddmContabilidadeBD&) = delete;

  // ---- lifecycle ----------------------------------------------------------
  // The creation handler (called by the constructor; calling it again resets
  // the same state).
  void DataModuleCreate();
  // Binds the module to the host: refreshes Aplicacao from `owner`, keeps the
  // connection (not owned) and the handle, installs the statement rewriting
  // on every command dataset that has no before-open handler, switches
  // metadata retrieval off, and starts the service libraries. When they
  // refuse, asks the host to terminate; returns normally either way.
  void AtualizaTAplicacao(THostContext& owner, db::Connection* connection, int32_t handle);
  // Starts both service libraries once; see the version rules in the
  // implementation. Returns false when a library refuses the structure
  // version.
  [[nodiscard]] bool InicializaDLLs();
  // Frees the caches and Aplicacao, shuts both libraries down and forgets the
  // connection. The object must not be used afterwards.
  void FinalizaDM();

  // Replaces the service libraries (a host with its own, or tests). REQUIRES:
  // both non-null; call before AtualizaTAplicacao.
  void SetServiceLibraries(std::unique_ptr<IGeral01> geral,
                           std::unique_ptr<IIntegracaoContabil01> integracao);

  // ---- session and transactions --------------------------------------------
  // Binds every command dataset, in ownership order, to Conexao.
  void SetaSQLConnection();
  // Unbinds every command dataset.
  void LimpaSQLConnection();
  // Begins a read-committed transaction on Conexao. Never raises; false when
  // beginning failed.
  [[nodiscard]] bool IniciaTransacao();
  // Commits and releases Transacao. Never raises; on a failed commit rolls
  // back (the caller must not) and returns false.
  [[nodiscard]] bool ComitaTransacao();
  // Rolls back and releases Transacao. Never raises; false on failure.
  [[nodiscard]] bool RollbackTransacao();
  // IniciaTransacao now, and a guard that ends the transaction with
  // ComitaTransacao or RollbackTransacao: committed only by its Commit(),
  // rolled back when it goes out of scope without one.
  [[nodiscard]] db::TransactionGuard NovaTransacao(
      db::TransactionGuard::WhenBeginFails when_begin_fails =
          db::TransactionGuard::WhenBeginFails::kLeaveAlone);
  // The statement-rewriting step run before a command dataset opens.
  void sdsPadraoBeforeOpen(db::SQLDataSet& dataset);

  // ---- general services ------------------------------------------------------
  // The database server's date and time (callers pass false, true).
  DateTime DataHoraBD(bool primeiro, bool segundo);
  // The next number of table/key for company and dealership, on Conexao.
  int32_t BuscaProximoNumero(int32_t empresa, int32_t revenda, const std::string& tabela,
                             const std::string& chave, IProgressCallback* callback, int32_t passo);
  // The same on the connection given, inside its caller's transaction.
  int32_t BuscaProximoNumeroTran(db::Connection& conexao, int32_t empresa, int32_t revenda,
                                 const std::string& tabela, const std::string& chave,
                                 int32_t passo);
  // Forwards a summarised-balance change to the integration library, all
  // arguments in the order received. True when the library accepted it.
  [[nodiscard]] bool AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& texto1,
                                             const std::string& texto2, const std::string& texto3,
                                             const std::string& texto4, const std::string& texto5,
                                             const std::string& texto6, int32_t inteiro1,
                                             int32_t inteiro2, int32_t inteiro3, int32_t inteiro4,
                                             int32_t inteiro5, int32_t inteiro6, int32_t inteiro7,
                                             int32_t inteiro8, double valor);

  // ---- journal entries -------------------------------------------------------
  // A new entry number for company, dealership and month ("LCTO" + anoMes as
  // given), drawn inside the caller's transaction on Conexao. Throws
  // std::invalid_argument when empresa or revenda is not a decimal number.
  int32_t PegaNovoLancamento(const std::string& empresa, const std::string& revenda,
                             const std::string& anoMes);
  // Posts the record as a credit entry and a debit entry pointing at it, each
  // with its division split. empresa, revenda and documento are written as
  // they stand (a blank documento as NULL). Catches nothing: a bad record
  // raises RegistroInvalido before anything of the entry is written; a
  // database error may come after the credit entry, so the caller holds the
  // transaction. REQUIRES: a transaction begun by the caller.
  void GravaLancamento(const std::string& registro, const std::string& empresa,
                       const std::string& revenda, const std::string& documento,
                       const std::string& textoDivisao, bool codigoNaConta);
  // Posts one side ("C" or "D") of an ERP record. lancamentoOrigem links the
  // pair: 0 before the first call, which stores its own number there; the
  // second call writes that number in LCO_ORIGEM. Any other natureza writes
  // nothing but still consumes a number. `reservado` is ignored.
  void GravaLancamentoSAP(const std::string& registro, const std::string& empresa,
                          const std::string& revenda, const std::string& documento,
                          const std::string& textoDivisao, const std::string& natureza,
                          bool reservado, int32_t& lancamentoOrigem);
  // Completes an entry just written: summarised balances and its one division
  // row. True when both balance updates were accepted and the row written; a
  // failed insert is swallowed (false). Conversion errors of the numeric
  // texts raise.
  [[nodiscard]] bool LancaDivisao(const std::string& empresa, const std::string& revenda,
                                  const std::string& anoMes, const std::string& lancamento,
                                  const std::string& codigoDivisao, const std::string& conta,
                                  const std::string& natureza, const std::string& textoDivisao,
                                  double valor);
  // Deletes the selected entry of the current company and dealership, the
  // entries generated from it and their division rows, reverses their
  // summarised balances and writes the audit records. Reports nothing: a
  // refused balance update rolls everything back and writes no audit record;
  // a database failure is rolled back and the audit records are still
  // written. Only a failure while writing the audit records raises.
  void ExcluiLancamentoSelecionado(int32_t Lancamento, const std::string& AnoMes,
                                   const std::string& Dia, IProgressCallback* callback);
  // The description of a cost centre, or empty text when there is none (or,
  // with somenteAtivos, when it is marked inactive for queries).
  std::string BuscaDescricaoCCusto(int32_t empresa, int32_t revenda, int32_t centroCusto,
                                   bool somenteAtivos);
  // The free-text lines of the invoice behind an entry, each followed by a
  // carriage return; empty when there is none. `reservado` is ignored.
  std::string BuscaItensNotaDescricaoLivre(int32_t empresa, int32_t revenda, int32_t anoMes,
                                           int32_t lancamento, const std::string& reservado);

  // ---- balance building blocks ------------------------------------------------
  // The dealership-exclusion predicate for the list (with its parentheses):
  // " " when the list is empty; otherwise the clause on REVENDA_OPERACAO
  // (Operacao true) or on REVENDA_DIVISAO, followed by one on REVENDA_ORIGEM
  // when Origem is true, each " <Conector> ((A.C is null) or (A.C not in
  // list)) ". An empty Alias leaves the columns unqualified.
  std::string VerifRevendasDesconsiderar(const std::string& RevendasDesconsiderar, bool Operacao,
                                         std::string Alias, const std::string& Conector,
                                         bool Origem) const;
  // The inner join of the entry table (Alias) to its division rows outside
  // the excluded dealerships, or " " when the list is empty.
  std::string IncluiRestricaoRevendasDesconsiderar(const std::string& RevendasDesconsiderar,
                                                   const std::string& Alias) const;
  // The carried-forward table (with a blank on each side) and the dealership
  // condition to append to a where on it (empty with an exclusion list).
  void DefineTabelaSaldoAnterior(int32_t Revenda, const std::string& RevendasDesconsiderar,
                                 const std::string& TabelaCV, std::string& Tabela,
                                 std::string& RestricaoRevenda) const;

  // ---- account balance ----------------------------------------------------------
  // The balance (debit positive) of an analytic account at the end of AnoMes
  // (YYYYMM; month 00 asks for the opening balance of the year): the
  // previous year's carried-forward balance plus the movement from January.
  // Integer division filters take -1 for none, texts empty; Modalidade "SPED"
  // adds the second book; FiltroAdicional is a condition on the journal with
  // "{$ALIAS$}" for its alias; RevendasDesconsiderar a list such as "(3,7)".
  // When the previous year has no carried-forward row, the answer is
  // BuscaSaldoAntContaAnaliticaPeriodo from January of the previous year.
  // Arguments 4 and 5 are accepted and not used. Database errors propagate.
  double BuscaSaldoContaAnalitica(int32_t Empresa, int32_t Revenda, int32_t AnoMes,
                                  int32_t Reservado1, int32_t Reservado2, int32_t CentroCusto,
                                  int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
                                  int32_t RevendaDivisao, const std::string& TipoItem,
                                  const std::string& Modalidade, const std::string& Conta,
                                  const std::string& CentrosCusto, bool SaldoMensal,
                                  const std::string& FiltroAdicional,
                                  const std::string& RevendasDesconsiderar);
  // The same through the module's cache of the whole period.
  double BuscaSaldoContaAnaliticaGeral(int32_t Empresa, int32_t Revenda, int32_t AnoMes,
                                       int32_t Reservado1, int32_t Reservado2, int32_t CentroCusto,
                                       int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
                                       int32_t RevendaDivisao, const std::string& TipoItem,
                                       const std::string& Modalidade, const std::string& Conta,
                                       const std::string& CentrosCusto, bool SaldoMensal,
                                       const std::string& FiltroAdicional,
                                       const std::string& RevendasDesconsiderar);
  // Any account: an analytic one (Nivel "A") sets Saldo to its balance; a
  // synthetic one adds the balances of all analytic accounts beneath it to
  // Saldo, which the caller starts at zero. Returns Saldo.
  double BuscaSaldoConta(int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1,
                         int32_t Reservado2, int32_t CentroCusto, int32_t Fonte, int32_t Categoria,
                         int32_t SecaoOficina, int32_t RevendaDivisao, const std::string& TipoItem,
                         const std::string& Modalidade, const std::string& Conta,
                         const std::string& Nivel, const std::string& CentrosCusto, double& Saldo,
                         bool Geral, bool SaldoMensal, const std::string& FiltroAdicional,
                         const std::string& RevendasDesconsiderar);
  // The balance over a range of months: the carried-forward balance of the
  // year before AnoMesInicial's (none counts as zero) plus the movement from
  // AnoMesInicial to AnoMesFinal.
  double BuscaSaldoAntContaAnaliticaPeriodo(int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial,
                                            int32_t AnoMesFinal, int32_t CentroCusto, int32_t Fonte,
                                            int32_t Categoria, int32_t SecaoOficina,
                                            int32_t RevendaDivisao, const std::string& TipoItem,
                                            const std::string& Modalidade, const std::string& Conta,
                                            const std::string& CentrosCusto, bool SaldoMensal,
                                            const std::string& FiltroAdicional,
                                            const std::string& RevendasDesconsiderar);

  // ---- account balance with division lists ------------------------------------------
  // The division variants of the analytic balance: cost centre, source,
  // category, workshop section and modality may each be given as a list
  // (which takes precedence over the single value), and the exclusion list is
  // applied through the join of the entries to their division rows. Same
  // sentinels and fallback rule as BuscaSaldoContaAnalitica.
  double BuscaSaldoContaAnaliticaDivisoes(
      int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
      const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
      const std::string& Categorias, const std::string& SecoesOficina,
      const std::string& Modalidades, const std::string& FiltroAdicional, bool SaldoMensal,
      const std::string& RevendasDesconsiderar);
  // The same through the module's cache of the whole period.
  double BuscaSaldoContaAnaliticaGeralDivisoes(
      int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
      const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
      const std::string& Categorias, const std::string& SecoesOficina,
      const std::string& Modalidades, const std::string& FiltroAdicional, bool SaldoMensal,
      const std::string& RevendasDesconsiderar);
  // The chart walker over the division variants (Geral chooses the cached
  // one), with the accumulation rules of BuscaSaldoConta.
  double BuscaSaldoContaDivisoes(int32_t Empresa, int32_t Revenda, int32_t AnoMes,
                                 int32_t Reservado1, int32_t Reservado2, int32_t CentroCusto,
                                 int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
                                 int32_t RevendaDivisao, const std::string& TipoItem,
                                 const std::string& Modalidade, const std::string& Conta,
                                 const std::string& Nivel, const std::string& CentrosCusto,
                                 const std::string& Fontes, const std::string& Categorias,
                                 const std::string& SecoesOficina, const std::string& Modalidades,
                                 const std::string& FiltroAdicional, double& Saldo, bool Geral,
                                 bool SaldoMensal, const std::string& RevendasDesconsiderar);
  // The division variants' balance over a range of months (their fallback
  // answers through the same computation with all their filters): cost
  // centre, source, category and workshop section may come as lists.
  double BuscaSaldoAntContaAnaliticaPeriodoDivisoes(
      int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
      const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
      const std::string& Categorias, const std::string& SecoesOficina, bool SaldoMensal,
      const std::string& FiltroAdicional, const std::string& RevendasDesconsiderar);

  // ---- account movement between days of a month ---------------------------------
  // The net movement (debits minus credits) of an analytic account's division
  // rows between two days of one month, narrowed by the division filters
  // (-1 or empty for none; Modalidade "SPED" adds the second book). With
  // UsaCache the grouped movement of the company, dealership, month and days
  // is kept in the module and each account is answered by filtering it; the
  // exclusion list is not part of that cache's key (intended).
  double BuscaSaldoContaAnaliticaPeriodo(int32_t Empresa, int32_t Revenda, int32_t AnoMes,
                                         int32_t DiaInicial, int32_t DiaFinal, int32_t CentroCusto,
                                         int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
                                         int32_t RevendaDivisao, const std::string& TipoItem,
                                         const std::string& Modalidade, const std::string& Conta,
                                         const std::string& CentrosCusto, bool UsaCache,
                                         const std::string& RevendasDesconsiderar);
  // The chart walker over BuscaSaldoContaAnaliticaPeriodo, with the
  // accumulation rules of BuscaSaldoConta. Returns Saldo.
  double BuscaSaldoContaPeriodo(int32_t Empresa, int32_t Revenda, int32_t AnoMes,
                                int32_t DiaInicial, int32_t DiaFinal, int32_t CentroCusto,
                                int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
                                int32_t RevendaDivisao, const std::string& TipoItem,
                                const std::string& Modalidade, const std::string& Conta,
                                const std::string& Nivel, const std::string& CentrosCusto,
                                double& Saldo, bool UsaCache,
                                const std::string& RevendasDesconsiderar);

  // The division variant of BuscaSaldoContaAnaliticaPeriodo: cost centre,
  // source, category, workshop section, division dealership and modality
  // may each come as a list. Answered by its own statements on every call
  // (the module's movement cache serves the single-value form).
  double BuscaSaldoContaAnaliticaPeriodoDivisoes(
      int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
      const std::string& Conta, const std::string& CentrosCusto, const std::string& Fontes,
      const std::string& Categorias, const std::string& SecoesOficina,
      const std::string& RevendasDivisao, const std::string& Modalidades,
      const std::string& RevendasDesconsiderar);
  // The chart walker over BuscaSaldoContaAnaliticaPeriodoDivisoes.
  double BuscaSaldoContaPeriodoDivisoes(
      int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t DiaInicial, int32_t DiaFinal,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
      const std::string& Conta, const std::string& Nivel, const std::string& CentrosCusto,
      const std::string& Fontes, const std::string& Categorias, const std::string& SecoesOficina,
      const std::string& RevendasDivisao, const std::string& Modalidades, double& Saldo,
      const std::string& RevendasDesconsiderar);

  // ---- balance with division lists -----------------------------------------------
  // The balance of an analytic account at the end of AnoMes with every
  // division given as a list ("" or "-1" for none; TipoItem single;
  // Modalidades an SQL list), always from the division tables. Falls back to
  // BuscaSaldoComDivisoesPeriodo, without the exclusion list, when the
  // previous year has no carried-forward row.
  double BuscaSaldoComDivisoes(int32_t Empresa, int32_t Revenda, int32_t AnoMes,
                               const std::string& CentrosCusto, const std::string& Fontes,
                               const std::string& Categorias, const std::string& SecoesOficina,
                               const std::string& RevendasDivisao, const std::string& TipoItem,
                               const std::string& Modalidades, const std::string& Conta,
                               bool SaldoMensal, const std::string& FiltroAdicional,
                               const std::string& RevendasDesconsiderar);
  // The same over AnoMesInicial to AnoMesFinal.
  double BuscaSaldoComDivisoesPeriodo(int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial,
                                      int32_t AnoMesFinal, const std::string& CentrosCusto,
                                      const std::string& Fontes, const std::string& Categorias,
                                      const std::string& SecoesOficina,
                                      const std::string& RevendasDivisao,
                                      const std::string& TipoItem, const std::string& Modalidades,
                                      const std::string& Conta, bool SaldoMensal,
                                      const std::string& FiltroAdicional,
                                      const std::string& RevendasDesconsiderar);
  // The balance of an account, for the current company and dealership, at
  // the end of the month before Data: the host's balance formulas. The seven
  // division texts choose between the single-value and the list forms;
  // HistoricosExcluidos lists standard-history codes whose entries are left
  // out. Sets Saldo (to 0 first) and returns it.
  double BuscaSaldoAnteriorFormula(const std::string& Conta, const std::string& Nivel,
                                   const std::string& CentrosCusto, const std::string& Fontes,
                                   const std::string& Categorias, const std::string& SecoesOficina,
                                   const std::string& RevendasDivisao, const std::string& TipoItem,
                                   const std::string& Modalidades, const DateTime& Data,
                                   double& Saldo, bool SaldoMensal,
                                   const std::string& HistoricosExcluidos);

  // ---- movement over a period ----
  // The net movement (debits minus credits) of an analytic account from
  // AnoMesInicial to AnoMesFinal (YYYYMM, both inclusive), for the whole
  // account or, with PorDivisao, for the one division combination of the
  // division arguments (-1 or empty for none; ModalidadeOperacao "SPED" adds
  // the second book and asks for no modality). With PorDivisao a non-empty
  // RestricaoDivisao is the division condition as it stands; without it,
  // "SPED_Tavro" reads the entries' own values. UsaSaldoDivisaoMes reads the
  // monthly division balances, counted as debit. One statement per call, run
  // as written (no rewriting). When several rows of one nature come back the
  // last one read counts. Database errors propagate.
  double CalculaMovimentoContaAnaliticaPeriodo(
      int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& ModalidadeOperacao,
      const std::string& Conta, bool PorDivisao, const std::string& RestricaoDivisao,
      bool UsaSaldoDivisaoMes, const std::string& RevendasDesconsiderar);
  // The same answered from cdsSaldoTotal, loaded once with the movement of
  // every account of the company, dealership and range and then filtered on
  // the account (and division values). The cache is keyed by those four
  // values only (division mode also needs the division columns): the source
  // flag, the exclusion list and "SPED" are not part of the key, and a
  // total-mode call accepts rows loaded in division mode. Intended. Leaves
  // cdsSaldoTotal open and filtered on the account.
  double CalculaMovimentoContaAnaliticaPeriodoGeral(
      int32_t Empresa, int32_t Revenda, int32_t AnoMesInicial, int32_t AnoMesFinal,
      int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
      int32_t RevendaDivisao, const std::string& TipoItem, const std::string& ModalidadeOperacao,
      const std::string& Conta, bool PorDivisao, bool UsaSaldoDivisaoMes,
      const std::string& RevendasDesconsiderar);
  // The division condition of the single form's statement: RestricaoDivisao
  // when not empty; otherwise " and <column> = <value>" or " and <column> is
  // null" for division dealership, cost centre, source, category, workshop
  // section, item type and modality, in that order. A number counts only when
  // greater than -1; "SPED" counts as no modality. Values are not escaped.
  static std::string MontaRestricaoDivisao(int32_t CentroCusto, int32_t Fonte, int32_t Categoria,
                                           int32_t SecaoOficina, int32_t RevendaDivisao,
                                           const std::string& TipoItem,
                                           const std::string& ModalidadeOperacao,
                                           const std::string& RestricaoDivisao);
  // The division condition of the Geral form's filter, same order and null
  // texts; a number other than exactly -1 is written " and <column> = <value>
  // and <column> is not null" (so -2 is searched for). Deliberately unlike
  // MontaRestricaoDivisao.
  static std::string MontaFiltroDivisao(int32_t CentroCusto, int32_t Fonte, int32_t Categoria,
                                        int32_t SecaoOficina, int32_t RevendaDivisao,
                                        const std::string& TipoItem,
                                        const std::string& ModalidadeOperacao);

  // ---- carried-forward balance of an analytic account ----------------------------
  // The balance an analytic account carries into AnoMes (YYYYMM): the stored
  // year-end balance of the previous year plus the movement from January to
  // the month before; without a stored balance for the previous year, the one
  // of the year before it (or 0) plus the movement from January of the
  // previous year. PorDivisao takes one division combination (the first row
  // stored counts); otherwise the whole account. UsaMovimentoGeral takes the
  // movement from the module's cache, without the exclusion list. Writes
  // nothing; database errors and an AnoMes of fewer than six digits raise.
  double CalculaSaldoAnteriorContaAnalitica(
      int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t CentroCusto, int32_t Fonte,
      int32_t Categoria, int32_t SecaoOficina, int32_t RevendaDivisao, const std::string& TipoItem,
      const std::string& ModalidadeOperacao, const std::string& Conta, bool PorDivisao,
      bool UsaMovimentoGeral, const std::string& RestricaoDivisao, bool UsaSaldoDivisaoMes,
      const std::string& RevendasDesconsiderar);

  // ---- updating carried-forward balances ------------------------------------------
  // Rebuilds the year's (Ano, written as it stands) carried-forward rows of
  // the synthetic accounts of the current company and dealership from the
  // analytic rows: each analytic balance is added to every ancestor up the
  // CONTA_SUPERIORA chain. Progress goes to Callback ("pBar#$#"). Failed
  // writes are appended to the error log (created here when none exists) and
  // the run goes on; failures while reading raise. No transaction is begun.
  // REQUIRES: no account is its own superior account (the walk would not end).
  void AtualizaSaldoAnterior(const std::string& Ano, IProgressCallback* Callback);
  // The same per division combination in CTB_SALDO_ANTERIOR_DIVISAO, new
  // rows numbered from the database-wide sequence.
  void AtualizaSaldoAnteriorDivisao(const std::string& Ano, IProgressCallback* Callback);

  // ---- rebuilding carried-forward balances ----------------------------------------
  // The roll-up of AtualizaSaldoAnterior for year Ano in one transaction of
  // its own, silent: true when committed; on any failure everything is rolled
  // back and the result is false (the error is not passed on).
  [[nodiscard]] bool RecompoeSaldoAnterior(const std::string& Ano);
  // The same per division combination (REVENDA_ORIGEM counting as an eighth
  // division column), then the previous year's qualifying combinations enter
  // year Ano with a zero balance.
  [[nodiscard]] bool RecompoeSaldoAnteriorDivisao(const std::string& Ano);

  // ---- result calculation -----------------------------------------------------------
  // The first day (YYYYMMDD) of the next result calculation of the current
  // company and dealership: the day after the stored last closing date
  // ("18991231" when that date is empty); empty text when the company and
  // dealership have no numbering-book row.
  std::string RetornaDataUltApuracao();
  // Closes the analytic result accounts (codes from "3" up) of the current
  // company and dealership from the day after the last calculation to
  // AnoMes/Dia: one closing entry per balance row (movement per nature and,
  // unless SomenteMovimento rules it out, the carried-forward balance of
  // Ano, or of the year before when AnoAtual is false), each split over the
  // divisions that produced it, and a counter-entry into ContaResultado.
  // Reports the totals posted to ContaResultado on the closing date with
  // HistoricoPadrao ("1.234,56 C" with the module's separators), moves the
  // last-calculation date to the closing date, and commits (Confirmar) or
  // rolls everything back (a preview). True when the run completed. Any
  // failure inside the transaction is rolled back and answered false with
  // its message in Mensagem (empty when a summarised-balance update was
  // refused); failures of the reads before it raise.
  [[nodiscard]] bool ApuraResultado(int32_t AnoMes, const std::string& Ano, const std::string& Dia,
                                    const std::string& HistoricoPadrao,
                                    const std::string& ContaResultado, bool AnoAtual,
                                    std::string& TotalCredito, std::string& TotalDebito,
                                    std::string& Diferenca, std::string& Mensagem, bool Confirmar,
                                    bool IncluiSaldoAnterior, bool SomenteMovimento,
                                    const std::string& RevendasDesconsiderar);

  // ---- annual closing --------------------------------------------------------------
  // Rewrites the carried-forward balances of year Ano (four digits) of the
  // current company and dealership from scratch: every analytic account's
  // balance at the end of the year, every division combination used in the
  // two years up to Ano (or carried from Ano - 1), then the roll-up to the
  // synthetic accounts. Refuses to run, changing nothing, while an account is
  // its own superior account (an "mtError#$#" command). Erros is the
  // caller's error table as serialised table data (empty text for none): it
  // comes back with one row appended per failed delete or insert, which does
  // not stop the run. Progress goes to Callback. Opens no transaction.
  // Failures of reads, balance computations and the roll-up raise; Erros
  // then still carries the rows collected so far. Throws
  // std::invalid_argument, before anything runs, when Ano is not a number
  // or Erros is not error-table data.
  void EncerramentoAnual(const std::string& Ano, std::string& Erros, IProgressCallback* Callback);

  // ---- display separators ------------------------------------------------------------
  // The separators of the thousands-separated totals of ApuraResultado. By
  // default they follow the process's LC_NUMERIC locale at the time of each
  // call (see SeparadoresDoLocale); a host that wants fixed ones sets them
  // here, and UsaSeparadoresDoLocale returns to the default.
  void DefineSeparadoresNumericos(SeparadoresNumericos separadores);
  void UsaSeparadoresDoLocale();
  SeparadoresNumericos SeparadoresEmUso() const;

  // ---- state (read by tests and hosts) -----------------------------------------
  TAplicacaoLibrary* Aplicacao() { return aplicacao_.get(); }
  db::Connection* Conexao() const { return conexao_; }
  int32_t HandleAplicacao() const { return handle_aplicacao_; }
  bool TransacaoAtiva() const { return transacao_.has_value(); }
  bool DLLsInicializadas() const { return dlls_inicializadas_; }
  int32_t ContadorDivisao() const { return contador_divisao_; }
  // The five cache keys (company, dealership, month, first day, last day of
  // the cached movement) and the cached text.
  const std::array<int32_t, 5>& ChavesCache() const { return chaves_cache_; }
  const std::string& TextoCache() const { return texto_cache_; }
  // The error log, or null when none exists.
  db::ClientDataSet* LogErros() const { return log_erros_.get(); }
  // Whether each of the three cached result sets exists.
  bool CacheExiste(size_t i) const { return caches_.at(i) != nullptr; }

  // Every command dataset in ownership order.
  const std::vector<db::SQLDataSet*>& CommandDataSets() const { return command_datasets_; }

  // ---- components, in ownership order ------------------------------------------
  db::SQLDataSet sdsDataHora{"sdsDataHora"};
  db::SQLDataSet sdsNumerador{"sdsNumerador"};
  db::SQLDataSet sdsAAux{"sdsAAux"};
  db::SQLDataSet sdsExecutaSQL{"sdsExecutaSQL"};
  db::SQLDataSet sdsConsultaLoc1{"sdsConsultaLoc1"};
  db::SQLDataSet sdsAux{"sdsAux"};
  db::SQLDataSet sdsSaldoTotal{"sdsSaldoTotal"};
  db::DataSetProvider dspSaldoTotal{"dspSaldoTotal", sdsSaldoTotal, true};
  db::ClientDataSet cdsSaldoTotal{"cdsSaldoTotal"};
  db::SQLDataSet sdsBuscaFilho{"sdsBuscaFilho"};
  db::SQLDataSet sdsContaSuperiora{"sdsContaSuperiora"};
  db::SQLDataSet sdsBuscaContaSaldo{"sdsBuscaContaSaldo"};
  db::SQLDataSet sdsBuscaSaldoDivisao{"sdsBuscaSaldoDivisao"};
  db::SQLDataSet sdsEncerra{"sdsEncerra"};
  db::DataSetProvider dspEncerra{"dspEncerra", sdsEncerra, true};
  db::SQLDataSet sdsAux2{"sdsAux2"};
  db::SQLDataSet sdsAux3{"sdsAux3"};
  db::SQLDataSet sdsExcluiLanc{"sdsExcluiLanc"};
  db::SQLDataSet sdsSaldoContaAnalitica{"sdsSaldoContaAnalitica"};

  // The client side of cdsSaldoTotal: its parameters (EMPRESA, REVENDA,
  // PERINI, PERFIN) and the command text it sends to dspSaldoTotal ("" keeps
  // the provider's).
  db::Params cdsSaldoTotalParams;
  std::string cdsSaldoTotalCommandText;

  // The tag under which the rewriting step is installed as a handler.
  static constexpr char kRewritingHandlerTag[] = "sdsPadraoBeforeOpen";

 private:
  void InstallRewriting(db::SQLDataSet& dataset);
  // The error log, created empty when it does not exist yet.
  db::ClientDataSet& LogErrosGarantido();
  // Appends a row to the error log: server time, message, sdsAux's text and
  // the error's own message.
  void RegistraErro(const std::string& mensagem, const std::exception& erro);
  void ExecutaRegistrando(const std::string& sql, const char* mensagem);
  std::string ContaSuperiora(const std::string& conta);
  // An analytic account, or one division combination of it, as the internal
  // callers of the carried-forward balance and the movement name it (the
  // public signatures keep their positional arguments).
  struct ContaAnalitica {
    int32_t empresa = 0;
    int32_t revenda = 0;
    std::string conta{};
    // The combination, with -1 or "" for a dimension not asked for.
    bool por_divisao = false;
    int32_t centro_custo = -1;
    int32_t fonte = -1;
    int32_t categoria = -1;
    int32_t secao_oficina = -1;
    int32_t revenda_divisao = -1;
    std::string tipo_item{};
    std::string modalidade_operacao{};
    std::string restricao_divisao{};
    bool usa_saldo_divisao_mes = false;
    std::string revendas_desconsiderar{};
  };
  // CalculaSaldoAnteriorContaAnalitica for `conta`.
  double SaldoAnteriorDaConta(const ContaAnalitica& conta, int32_t ano_mes,
                              bool usa_movimento_geral);
  // CalculaMovimentoContaAnaliticaPeriodo, or its ...Geral form (which takes
  // no division restriction), for `conta`.
  double MovimentoDaConta(const ContaAnalitica& conta, int32_t ano_mes_inicial,
                          int32_t ano_mes_final, bool usa_movimento_geral);
  // The roll-up walk of the roll-up and the rebuild, plain and by division:
  // from an analytic account up CONTA_SUPERIORA to the root. `gravado` reads
  // each account's carried-forward balance; `grava(conta, existe, saldo)`
  // writes it: a row that exists gets the analytic balance added (the
  // analytic account's own row, nothing), a missing row is created with it.
  void SobeContasSuperioras(
      const std::string& conta_analitica, double saldo_analitico,
      const std::function<std::optional<double>(const std::string& conta)>& gravado,
      const std::function<void(const std::string& conta, bool existe, double saldo)>& grava);
  // The stored carried-forward balance of an account and year (plain, or of
  // one division combination given as its condition) of the current company
  // and dealership; empty when there is no row.
  std::optional<double> SaldoAnteriorGravado(const std::string& conta, const std::string& ano);
  std::optional<double> SaldoAnteriorDivisaoGravado(const std::string& conta,
                                                    const std::string& ano,
                                                    const std::string& condicao);
  // Executes a write on sdsExecutaSQL; failures raise.
  void ExecutaEscrita(const std::string& sql);
  // Strict decimal conversion of a numeric text argument; the message names
  // the argument.
  static int32_t StrToInt(const std::string& texto, const char* argumento);
  std::string MontaInsertLancamento(const std::string& empresa, const std::string& revenda,
                                    const std::string& ano_mes, int32_t lancamento,
                                    const std::string& lco_origem, const std::string& conta,
                                    const std::string& historico_padrao, const std::string& dia,
                                    const std::string& natureza, double valor,
                                    const std::string& historico_complementar,
                                    const std::string& documento) const;
  void ExecutaInsertLancamento(const std::string& sql);
  // A private query object on Conexao with the rewriting step, for one call.
  std::unique_ptr<db::SQLDataSet> NovaConsulta(const char* nome);
  // The division filter text of the balance queries (no table alias).
  static std::string FiltroDivisao(const FiltroSaldo& filtro);
  double MovimentoConta(db::SQLDataSet& consulta, const FiltroSaldo& filtro,
                        const std::string& primeiro, const std::string& ultimo, bool com_filtro);
  // The analytic balance, its general (cached) form and the balance over a
  // range of months, for filters already gathered.
  double SaldoAnalitico(const FiltroSaldo& filtro, int32_t AnoMes);
  double SaldoAnaliticoGeral(const FiltroSaldo& filtro, int32_t AnoMes);
  double SaldoIntervaloMeses(const FiltroSaldo& filtro, int32_t AnoMesInicial, int32_t AnoMesFinal);
  // The chart walk shared by the chart walkers: an analytic account sets
  // Saldo, a synthetic one adds its analytic descendants' balances.
  double CaminhaPlano(int32_t Empresa, int32_t Revenda, const std::string& Conta,
                      const std::string& Nivel, double& Saldo,
                      const std::function<double(const std::string&)>& analitica);
  static FiltroSaldo FiltroDivisoes(int32_t Empresa, int32_t Revenda, int32_t CentroCusto,
                                    int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
                                    int32_t RevendaDivisao, const std::string& TipoItem,
                                    const std::string& Modalidade, const std::string& Conta,
                                    const std::string& CentrosCusto, const std::string& Fontes,
                                    const std::string& Categorias, const std::string& SecoesOficina,
                                    const std::string& Modalidades,
                                    const std::string& FiltroAdicional, bool SaldoMensal,
                                    const std::string& RevendasDesconsiderar);
  // One statement feeding a cache of the general balance, with the marks of
  // its rows.
  struct CargaGeral {
    std::string sql;
    int plano;
    std::string livro;
  };
  db::ClientDataSet& CarregaCacheGeral(size_t slot, const std::string& chave,
                                       const std::vector<CargaGeral>& cargas, int32_t empresa,
                                       int32_t revenda, int32_t perini, int32_t perfin);
  void SetFixedContent();
  // One entry of the result calculation (a closing entry when `encerramento`,
  // else a counter-entry), its division rows (the visible rows of
  // `divisoes`) and its summarised balances. Returns its number; any failure
  // raises.
  int32_t LancaApuracao(bool encerramento, int32_t AnoMes, const std::string& Dia,
                        const std::string& HistoricoPadrao, const std::string& conta,
                        const std::string& natureza, double valor, db::ClientDataSet& divisoes);

  // State, in declaration order of the data module.
  std::unique_ptr<TAplicacaoLibrary> aplicacao_;
  db::Connection* conexao_ = nullptr;
  int32_t handle_aplicacao_ = 0;
  // The active transaction's isolation; empty when none.
  std::optional<db::Isolation> transacao_;
  std::unique_ptr<db::ClientDataSet> log_erros_;
  int32_t contador_divisao_ = 0;
  bool dlls_inicializadas_ = false;
  std::array<std::unique_ptr<db::ClientDataSet>, 3> caches_;
  std::array<int32_t, 5> chaves_cache_{-1, -1, -1, -1, -1};
  std::string texto_cache_;
  // The key of the general balance's carried-forward cache (the cached text
  // above keys its movement cache).
  std::string chave_saldo_geral_;
  // Fixed display separators; empty follows the locale.
  std::optional<SeparadoresNumericos> separadores_;

  std::unique_ptr<IGeral01> geral_;
  std::unique_ptr<IIntegracaoContabil01> integracao_;
  std::vector<db::SQLDataSet*> command_datasets_;
};

}  // namespace kvc

// The C entry point for hosts that load the module at run time: returns a new
// data module, which the host frees with KVContabilidade01_Destroy.
extern "C" {
KVC_API kvc::TddmContabilidadeBD* KVContabilidade01_Create();
KVC_API void KVContabilidade01_Destroy(kvc::TddmContabilidadeBD* module);
}

#endif  // KVC_MODULE_UDDMCONTABILIDADEBD_H_
