// The demo company: master data written with plain inserts (the module has
// no operation for charts, cost centres or invoices), entries posted through
// GravaLancamento as a host posts them. The random choices come from a fixed
// seed and use only the raw generator output, whose sequence the C++
// standard fixes, so every platform builds the same company.
#include "cli/demo.h"

#include <random>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>

#include "accounting/db/dialect.h"
#include "cli/divisions.h"
#include "cli/record.h"

namespace kvc::cli {
namespace {

constexpr char kInsertConta[] =
    "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL, NIVEL_DIVISAO, "
    "LANCAMENTO_DIVIDIDO, DES_CONTA) values (:EMPRESA, :REVENDA, :CONTA, :CONTA_SUPERIORA, "
    ":NIVEL, :NIVEL_DIVISAO, :LANCAMENTO_DIVIDIDO, :DES_CONTA)";
constexpr char kInsertSaldoAnterior[] =
    "insert into CTB_SALDO_ANTERIOR (EMPRESA, REVENDA, CONTA, ANO, SALDO) values (:EMPRESA, "
    ":REVENDA, :CONTA, :ANO, :SALDO)";
constexpr char kInsertTipoTransacao[] =
    "insert into FAT_TIPO_TRANSACAO (TIPO_TRANSACAO, UTILIZA_DESPESAS) select 'V21', 'S'";
constexpr char kTipoTransacaoExiste[] =
    "select count(*) N from FAT_TIPO_TRANSACAO where TIPO_TRANSACAO = 'V21'";
constexpr char kInsertCapa[] =
    "insert into FAT_MOVIMENTO_CAPA (EMPRESA, REVENDA, NUMERO_NOTA_FISCAL, SERIE_NOTA_FISCAL, "
    "TIPO_TRANSACAO, CONTADOR, OPERACAO) values (:EMPRESA, :REVENDA, :NUMERO, '1', 'V21', 1, "
    ":OPERACAO)";
constexpr char kInsertDescLivre[] =
    "insert into FAT_MOVIMENTO_DESC_LIVRE (EMPRESA, REVENDA, NUMERO_NOTA_FISCAL, "
    "SERIE_NOTA_FISCAL, TIPO_TRANSACAO, CONTADOR, ORDEM, DESCRICAO) values (:EMPRESA, :REVENDA, "
    ":NUMERO, '1', 'V21', 1, :ORDEM, :DESCRICAO)";
constexpr char kMarcaOperacao[] =
    "update CTB_LANCAMENTO set OPERACAO = :OPERACAO where EMPRESA = :EMPRESA and REVENDA = "
    ":REVENDA and ANO_MES = :ANO_MES and DOCUMENTO = :NUMERO";
constexpr char kLancamentoNota[] =
    "select min(LANCAMENTO) L from CTB_LANCAMENTO where EMPRESA = :EMPRESA and REVENDA = :REVENDA "
    "and ANO_MES = :ANO_MES and DOCUMENTO = :NUMERO";

constexpr int32_t kInvoiceNumber = 50001;
constexpr int32_t kInvoiceOperation = 7001;
constexpr int kRecordsPerMonth = 50;

struct Group {
  const char* code;
  const char* name;
  std::vector<std::pair<const char*, std::vector<const char*>>> subgroups;
};

// The chart's upper levels; analytic accounts are added under each
// third-level account.
const std::vector<Group>& Groups() {
  static const std::vector<Group> groups = {
      {"1",
       "ATIVO",
       {{"ATIVO CIRCULANTE", {"DISPONIVEL", "CLIENTES", "ESTOQUES", "IMPOSTOS A RECUPERAR"}},
        {"REALIZAVEL A LONGO PRAZO", {"DEPOSITOS JUDICIAIS", "CREDITOS DIVERSOS", "CONSORCIOS"}},
        {"PERMANENTE", {"IMOBILIZADO", "INTANGIVEL", "DEPRECIACAO ACUMULADA"}}}},
      {"2",
       "PASSIVO",
       {{"PASSIVO CIRCULANTE",
         {"FORNECEDORES", "OBRIGACOES TRABALHISTAS", "OBRIGACOES FISCAIS", "EMPRESTIMOS"}},
        {"EXIGIVEL A LONGO PRAZO", {"FINANCIAMENTOS", "PARCELAMENTOS"}},
        {"PATRIMONIO LIQUIDO", {"CAPITAL SOCIAL", "RESERVAS"}}}},
      {"3",
       "RECEITAS",
       {{"VEICULOS NOVOS", {"VENDAS", "DEVOLUCOES", "BONIFICACOES"}},
        {"VEICULOS USADOS", {"VENDAS", "DEVOLUCOES"}},
        {"PECAS E ACESSORIOS", {"BALCAO", "OFICINA", "ATACADO"}},
        {"SERVICOS", {"MAO DE OBRA", "SERVICOS DE TERCEIROS"}}}},
      {"4",
       "CUSTOS",
       {{"CUSTO VEICULOS NOVOS", {"CUSTO DAS VENDAS", "FRETES"}},
        {"CUSTO VEICULOS USADOS", {"CUSTO DAS VENDAS", "PREPARACAO"}},
        {"CUSTO PECAS", {"CUSTO DAS VENDAS", "PERDAS"}},
        {"CUSTO SERVICOS", {"MAO DE OBRA", "TERCEIROS", "MATERIAIS"}}}},
      {"5",
       "DESPESAS",
       {{"ADMINISTRATIVAS", {"PESSOAL", "OCUPACAO", "GERAIS", "TRIBUTOS"}},
        {"COMERCIAIS", {"COMISSOES", "PROPAGANDA", "FRETES"}},
        {"FINANCEIRAS", {"JUROS", "TARIFAS"}}}},
  };
  return groups;
}

constexpr const char* kCostCentres[] = {"ADMINISTRACAO", "VEICULOS NOVOS", "VEICULOS USADOS",
                                        "PECAS",         "OFICINA",        "FUNILARIA",
                                        "FINANCEIRO",    "MARKETING",      "DESATIVADO"};

class DemoBuilder {
 public:
  explicit DemoBuilder(Session& s) : s_(s), c_(s.Connection()), rng_(20240601u) {}

  DemoSummary Build() {
    Chart();
    MasterData();
    Entries();
    Invoice();
    return summary_;
  }

 private:
  db::BoundParams Params(std::initializer_list<db::BoundParam> more) {
    db::BoundParams p = CompanyParams(s_.Options());
    p.insert(p.end(), more);
    return p;
  }
  uint32_t Pick(uint32_t n) { return static_cast<uint32_t>(rng_() % n); }

  void Account(const std::string& conta, const std::string& superiora, const std::string& nivel,
               const std::string& nome) {
    const bool result = conta[0] >= '3';
    c_.Execute(kInsertConta,
               Params({{"CONTA", db::Value(conta)},
                       {"CONTA_SUPERIORA", superiora.empty() ? db::Value() : db::Value(superiora)},
                       {"NIVEL", db::Value(nivel)},
                       {"NIVEL_DIVISAO", result ? db::Value(1) : db::Value()},
                       {"LANCAMENTO_DIVIDIDO", db::Value(result ? "S" : "N")},
                       {"DES_CONTA", db::Value(nome)}}));
    ++summary_.accounts;
    if (nivel == "A") {
      ++summary_.analytic_accounts;
      analytic_.push_back(conta);
    }
  }

  void Chart() {
    for (const Group& g : Groups()) {
      Account(g.code, "", "S", g.name);
      int sub = 0;
      for (const auto& [sub_name, leaves] : g.subgroups) {
        const std::string sub_code = fmt::format("{}.{}", g.code, ++sub);
        Account(sub_code, g.code, "S", sub_name);
        int leaf = 0;
        for (const char* leaf_name : leaves) {
          const std::string leaf_code = fmt::format("{}.{}", sub_code, ++leaf);
          Account(leaf_code, sub_code, "S", leaf_name);
          const uint32_t n = 5 + Pick(6);
          for (uint32_t k = 1; k <= n; ++k)
            Account(fmt::format("{}.{:02d}", leaf_code, k), leaf_code, "A",
                    fmt::format("{} {:02d}", leaf_name, k));
        }
      }
    }
    Account("2.9", "2", "S", "RESULTADO");
    Account("2.9.1", "2.9", "S", "RESULTADO DO EXERCICIO");
    Account(kDemoResultAccount, "2.9.1", "A", "RESULTADO DO EXERCICIO 01");
    analytic_.pop_back();  // the result account receives no demo entries
  }

  void MasterData() {
    const char* types[] = {"C", "R", "F"};
    for (int nivel = 1; nivel <= 3; ++nivel) InsertDivisionType(s_, nivel, types[nivel - 1]);
    int code = 0;
    for (const char* name : kCostCentres) {
      ++code;
      InsertCostCentre(s_, {code, name, code == 9});
      ++summary_.cost_centres;
    }
    // Opening balances of the company (debit positive; they add up to zero).
    const std::pair<const char*, double> openings[] = {{"1.1.1.01", 500000.00},
                                                       {"1.1.3.01", 1200000.00},
                                                       {"1.3.1.01", 800000.00},
                                                       {"2.1.1.01", -700000.00},
                                                       {"2.3.1.01", -1800000.00}};
    for (const auto& [conta, saldo] : openings)
      c_.Execute(kInsertSaldoAnterior, Params({{"CONTA", db::Value(conta)},
                                               {"ANO", db::Value(2022)},
                                               {"SALDO", db::Value(saldo)}}));
  }

  // A random analytic account whose code starts with one of the prefixes.
  const std::string& Under(std::initializer_list<const char*> prefixes) {
    std::vector<const std::string*> candidates;
    for (const std::string& a : analytic_)
      for (const char* p : prefixes)
        if (a.rfind(p, 0) == 0) candidates.push_back(&a);
    return *candidates.at(Pick(static_cast<uint32_t>(candidates.size())));
  }

  void Entries() {
    TddmContabilidadeBD& dm = s_.Module();
    const std::string empresa = std::to_string(s_.Options().empresa);
    const std::string revenda = std::to_string(s_.Options().revenda);
    for (int year = 2023; year <= 2024; ++year) {
      for (int month = 1; month <= 12; ++month) {
        for (int i = 0; i < kRecordsPerMonth; ++i) {
          RecordFields f;
          f.yymm = fmt::format("{:02d}{:02d}", year % 100, month);
          f.day = fmt::format("{:02d}", 1 + Pick(28));
          const uint32_t kind = Pick(20);
          int64_t cents = 0;
          if (kind < 8) {  // a sale
            f.account1 = Under({"1.1.1.", "1.1.2."});
            f.account2 = Under({"3.1.1.", "3.2.1.", "3.3.", "3.4."});
            f.history = "VENDA";
            cents = 100000 + Pick(7900000);
          } else if (kind < 12) {  // its cost
            f.account1 = Under({"4."});
            f.account2 = Under({"1.1.3."});
            f.history = "BAIXA DE ESTOQUE";
            cents = 50000 + Pick(5000000);
          } else if (kind < 17) {  // an expense
            f.account1 = Under({"5.", "3.1.2.", "3.2.2."});
            f.account2 = Under({"1.1.1.", "2.1."});
            f.history = "DESPESA";
            cents = 1000 + Pick(500000);
          } else if (kind < 19) {  // a purchase
            f.account1 = Under({"1.1.3.", "1.3.1."});
            f.account2 = Under({"2.1.1.", "2.2."});
            f.history = "COMPRA";
            cents = 100000 + Pick(3000000);
          } else {  // a payment
            f.account1 = Under({"2.1.", "2.2."});
            f.account2 = Under({"1.1.1."});
            f.history = "PAGAMENTO";
            cents = 10000 + Pick(1000000);
          }
          // Some records carry the sides the other way round.
          if (Pick(4) == 0) {
            std::swap(f.account1, f.account2);
            f.side = "-";
          }
          f.cents = cents;
          f.standard_history = std::to_string(10 + kind % 5);
          f.division_code = Pick(5) == 0 ? "" : std::to_string(1 + Pick(8));
          f.history += fmt::format(" {:04d}", i + 1);
          std::string documento;
          if (year == 2024 && month == 1 && i == 0) {
            // The first record of January 2024 is the sale behind the demo
            // invoice.
            f.account1 = "1.1.1.01";
            f.account2 = "3.1.1.01";
            f.side = " ";
            documento = std::to_string(kInvoiceNumber);
          }
          dm.GravaLancamento(BuildRecord(f), empresa, revenda, documento,
                             std::to_string(1 + Pick(3)), false);
          ++summary_.records;
        }
      }
    }
  }

  void Invoice() {
    const db::Value numero(kInvoiceNumber);
    if (c_.Query(kTipoTransacaoExiste, {}).rows.at(0).at(0).AsInteger() == 0)
      c_.Execute(kInsertTipoTransacao + c_.dialect().DummyFrom(), {});
    c_.Execute(kInsertCapa,
               Params({{"NUMERO", numero}, {"OPERACAO", db::Value(kInvoiceOperation)}}));
    const char* lines[] = {"REVISAO DOS 10.000 KM", "TROCA DE OLEO E FILTROS",
                           "ALINHAMENTO E BALANCEAMENTO"};
    int ordem = 0;
    for (const char* line : lines)
      c_.Execute(kInsertDescLivre, Params({{"NUMERO", numero},
                                           {"ORDEM", db::Value(++ordem)},
                                           {"DESCRICAO", db::Value(line)}}));
    c_.Execute(kMarcaOperacao, Params({{"OPERACAO", db::Value(kInvoiceOperation)},
                                       {"ANO_MES", db::Value(202401)},
                                       {"NUMERO", numero}}));
    const db::ResultSet rs =
        c_.Query(kLancamentoNota, Params({{"ANO_MES", db::Value(202401)}, {"NUMERO", numero}}));
    summary_.invoice_entry = static_cast<int32_t>(rs.rows.at(0).at(0).AsInteger());
    summary_.invoice_month = 202401;
  }

  Session& s_;
  db::Connection& c_;
  std::mt19937 rng_;
  std::vector<std::string> analytic_;
  DemoSummary summary_;
};

}  // namespace

DemoSummary LoadDemo(Session& session) {
  DemoSummary summary;
  InTransaction(session, "the demo company", [&] {
    summary = DemoBuilder(session).Build();
    return true;
  });
  return summary;
}

}  // namespace kvc::cli
