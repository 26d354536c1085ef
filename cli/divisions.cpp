// Reading and writing cost centres and division types, and the division
// split's rules for keeping a cost centre, as the posting applies them.
#include "cli/divisions.h"

#include <fmt/format.h>

namespace kvc::cli {
namespace {

constexpr char kSelectCostCentres[] =
    "select CENTRO_CUSTO, DES_CENTRO_CUSTO, INATIVO_CONSULTAS from CTB_CENTRO_CUSTO where "
    "EMPRESA = :EMPRESA and REVENDA = :REVENDA order by CENTRO_CUSTO";
constexpr char kInsertCostCentre[] =
    "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO, "
    "INATIVO_CONSULTAS) values (:EMPRESA, :REVENDA, :CENTRO_CUSTO, :DES_CENTRO_CUSTO, "
    ":INATIVO_CONSULTAS)";
constexpr char kSelectDivisionTypes[] =
    "select NIVEL, TIPO_DIVISAO from CTB_DIVISAO_CONTABIL where EMPRESA = :EMPRESA and REVENDA = "
    ":REVENDA order by NIVEL";
constexpr char kInsertDivisionType[] =
    "insert into CTB_DIVISAO_CONTABIL (EMPRESA, REVENDA, NIVEL, TIPO_DIVISAO) values (:EMPRESA, "
    ":REVENDA, :NIVEL, :TIPO_DIVISAO)";

}  // namespace

std::vector<CostCentre> CostCentres(Session& session) {
  std::vector<CostCentre> centres;
  for (const auto& row :
       session.Connection().Query(kSelectCostCentres, CompanyParams(session.Options())).rows)
    centres.push_back({static_cast<int32_t>(row.at(0).AsInteger()), ColumnText(row.at(1)),
                       ColumnText(row.at(2)) == "S"});
  return centres;
}

void InsertCostCentre(Session& session, const CostCentre& centre) {
  db::BoundParams p = CompanyParams(session.Options());
  p.push_back({"CENTRO_CUSTO", db::Value(centre.code)});
  p.push_back({"DES_CENTRO_CUSTO", db::Value(centre.description)});
  p.push_back({"INATIVO_CONSULTAS", db::Value(centre.inactive ? "S" : "N")});
  session.Connection().Execute(kInsertCostCentre, p);
}

std::map<int32_t, std::string> DivisionTypes(Session& session) {
  std::map<int32_t, std::string> types;
  for (const auto& row :
       session.Connection().Query(kSelectDivisionTypes, CompanyParams(session.Options())).rows)
    types[static_cast<int32_t>(row.at(0).AsInteger())] = ColumnText(row.at(1));
  return types;
}

void InsertDivisionType(Session& session, int32_t level, const std::string& type) {
  db::BoundParams p = CompanyParams(session.Options());
  p.push_back({"NIVEL", db::Value(level)});
  p.push_back({"TIPO_DIVISAO", db::Value(type)});
  session.Connection().Execute(kInsertDivisionType, p);
}

std::string CostCentreFate::Why() const {
  if (no_cost_centre_level.empty()) return balance_sheet;
  if (balance_sheet.empty()) return no_cost_centre_level;
  return no_cost_centre_level + "; and " + balance_sheet;
}

CostCentreFate FateOfCostCentre(const ChartLine& account,
                                const std::map<int32_t, std::string>& types) {
  CostCentreFate fate;
  const int32_t level = account.nivel_divisao.value_or(0);
  if (level > 0) {
    bool cost_centre_level = false;
    for (const auto& [nivel, tipo] : types)
      cost_centre_level = cost_centre_level || (nivel <= level && tipo == kCostCentreType);
    if (!cost_centre_level) {
      int32_t free_level = 1;
      while (free_level <= level && types.count(free_level)) ++free_level;
      const std::string levels = level == 1
                                     ? "division level 1 is not"
                                     : fmt::format("no division level from 1 to {} is", level);
      const std::string remedy =
          free_level <= level ? fmt::format("define one with kvctb division-type-add {} {}",
                                            free_level, kCostCentreType)
          : level == 1        ? std::string("it already has another type")
                       : fmt::format("every level from 1 to {} already has another type", level);
      fate.no_cost_centre_level =
          fmt::format("account {} has division level {}, and {} of type {} (cost centre): {}",
                      account.conta, level, levels, kCostCentreType, remedy);
    }
  }
  const char group = account.conta.empty() ? ' ' : account.conta[0];
  if (account.dividido != "S" && (group == '1' || group == '2'))
    fate.balance_sheet = fmt::format(
        "account {} is a balance-sheet account (group {}) not marked always divided "
        "(LANCAMENTO_DIVIDIDO S in the chart)",
        account.conta, group);
  return fate;
}

}  // namespace kvc::cli
